"""Takes the room of a volume, and the descriptors of a process, for a moment from a writer that goes on writing.

shortage.py BINARIES FAULTYDISK; ZEL_SHORTAGES says how many cycles of each kind, ZEL_SEED with which seed.
Where nothing can be mounted only the preloaded library takes them."""
import errno
import os
import random
import subprocess
import sys
import time

from faultstore import GIVEN_UP, FaultyDisk, LONGEST, Store, read_acks, read_back, setting

VOLUME = 300 << 20
LEFT = 75 << 20     # what the other program leaves at first
PER_DAY = 10**6
RECORDS, MOST_BYTES = 100000, 3000
SHORTAGES = (("write", ".ldb", errno.ENOSPC), ("open", ".ldb", errno.EMFILE), ("write", ".log", errno.ENOSPC),
             ("write", "MANIFEST", errno.ENOSPC), ("open", ".log", errno.EMFILE))


def mount(folder, image):
    """Which kind of volume stands there now, or None."""
    with open(image, "wb") as file:
        file.truncate(VOLUME)
    quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    try:
        if subprocess.run(["mkfs.ext4", "-qF", "-E", "root_owner", image], **quiet).returncode == 0 and \
                subprocess.run(["mount", "-o", "loop", image, folder], **quiet).returncode == 0:
            return "ext4"
        if subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={VOLUME}", "tmpfs", folder], **quiet).returncode == 0:
            return "tmpfs"
    except OSError:
        pass
    return None


def free(folder):
    volume = os.statvfs(folder)
    return volume.f_bavail * volume.f_frsize


class OtherProgram:
    """Fills the volume, but for what the writer may still use; then takes that too, and lets all go again."""

    def __init__(self, folder, dice):
        self.path, self.folder, self.dice = os.path.join(folder, "other"), folder, dice

    def take(self, file, leave, seconds):
        begin, taken = time.monotonic(), os.fstat(file).st_size
        chunk = bytes(1 << 20)
        while free(self.folder) > leave and time.monotonic() < begin + seconds:
            try:
                taken += os.write(file, chunk[:max(4096, min(len(chunk), free(self.folder) - leave))])
            except OSError:
                break

    def hinder(self):
        file = os.open(self.path, os.O_CREAT | os.O_WRONLY, 0o600)
        self.take(file, LEFT, 10)
        time.sleep(self.dice.uniform(0, 0.3))
        self.take(file, 0, 2)
        time.sleep(1.5)
        os.close(file)
        os.remove(self.path)


class Shortages:
    def __init__(self, store, dice):
        self.store, self.dice = store, dice
        self.sums = {"acknowledged": 0, "refused": 0}

    def verify(self, code, out):
        back, told = read_back(out), read_acks(out)[1]
        self.store.check("the writer ends", True, code in (0, 4, -9))
        self.store.check("no database is given up", [], [line for line in told if line[-1] in GIVEN_UP])
        _, rows = self.store.look()
        self.store.check("what was on the disk is there", [], self.store.lacks(rows, back)[:10])
        self.sums["acknowledged"] += len(back)
        self.sums["refused"] += sum(int(line[2]) for line in told if len(line) > 2)

    def clear(self):
        self.store.run("purge", "--max-size", "0")

    def of_room(self):
        """A writer on a volume that another program fills."""
        command = self.store.writer_command(0, RECORDS, PER_DAY, MOST_BYTES)
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=self.store.environment) as writer:
            time.sleep(self.dice.uniform(0.1, 1))
            OtherProgram(self.store.store, self.dice).hinder()
            time.sleep(self.dice.uniform(0, 2))
            writer.kill()  # what it has read back is there for good
            out, _ = writer.communicate(timeout=LONGEST)
        self.verify(writer.returncode, out)

    def of_calls(self, disk):
        """A writer whose calls fail for a moment, mostly those of the library's own thread."""
        call, kind, error = self.dice.choice(SHORTAGES)
        nth = self.dice.choice((1, 2, 3, 5, 10, 30))
        last = nth + self.dice.choice((0, 0, 1, 3))
        ended, _ = disk.run(self.store.writer_command(0, RECORDS // 20, PER_DAY, MOST_BYTES), call, kind, nth, last, error)
        before = self.store.failures
        self.verify(ended.returncode, ended.stdout)
        if self.store.failures != before:
            print(f"  with {call} {kind} {nth} to {last}, {errno.errorcode[error]}", flush=True)


def main(binaries, library):
    cycles, seed = setting("ZEL_SHORTAGES", 2), setting("ZEL_SEED", int(time.time()))
    print(f"{cycles} cycles of each kind, ZEL_SEED={seed}", flush=True)
    dice = random.Random(seed)
    with Store(binaries) as store:
        run, disk = Shortages(store, dice), FaultyDisk(store, library)
        for _ in range(cycles):
            run.of_calls(disk)
            run.clear()
        print(f"calls: {run.sums}", flush=True)
        run.sums = dict.fromkeys(run.sums, 0)
        volume = mount(store.store, os.path.join(store.folder, "image"))
        try:
            for _ in range(cycles if volume else 0):
                run.of_room()
                run.clear()
        finally:
            if volume:
                subprocess.run(["umount", "-l", store.store])
        print(f"volume: {volume or 'nothing can be mounted here'}, {run.sums}")
        return 1 if store.failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:3]))
