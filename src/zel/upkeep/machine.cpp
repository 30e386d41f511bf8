#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

#include "common/describedmachine.h"
#include "common/hostservices.h"
#include "common/machinetext.h"
#include "common/thismachine.h"
#include "zel/commands.h"
#include "zel/terminal/messages.h"

// A store may be carried to another machine to be looked into. The paths of a question then stand
// for folders and users of the machine that it came from, so that machine is described to a file
// there (`machine show`) and put in place of this one here, ahead of everything that asks about
// paths.

namespace zel {

bool UseMachine(const std::string& file) {
    // The store keeps on asking until the process ends.
    static std::unique_ptr<wm::DescribedMachine> machine;
    std::ifstream in(file, std::ios::binary);
    std::string text, error;
    if (!in || !text.assign(std::istreambuf_iterator<char>(in), {}).size()) {
        Say(file + ": can't be read, or is empty");
        return false;
    }
    machine = wm::DescribedMachine::Parse(text, &error);
    if (!machine) {
        Say(file + ": " + error);
        return false;
    }
    wm::SetMachine(machine.get());
    return true;
}

// With a file this prints what was understood of it, which shows a name that was put in the wrong
// place.
int RunMachineShow(const MachineOptions& options) {
    if (!options.file.empty() && !UseMachine(options.file))
        return exitCode::usage;
    std::string json;
    if (!wm::DescribeMachine(wm::Machine(), &json)) {
        Say("the machine's users can't be read");
        return exitCode::noStore;
    }
    std::printf("%s\n", json.c_str());
    return exitCode::done;
}

}  // namespace zel
