#include "common/machinetext.h"

#include "common/foldertokens.h"
#include "common/jsontext.h"
#include "common/machinekeys.h"
#include "common/textbridge.h"
#include "common/userfolder.h"

// Writes what DescribedMachine reads: the answers of a machine, asked one after the other, in a
// fixed order. The text is meant to be looked over and edited before it goes elsewhere, hence the
// indentation and the short list of variables: it may leave the machine, and what a process
// happens to have in its environment must not leave with it.

namespace wm {

namespace {

// Those of the process that hold for every user. The others may be secrets of who asks.
constexpr const wchar_t* machineVariables[] = {
    L"SystemDrive",
    L"SystemRoot",
    L"windir",
    L"ComSpec",
    L"COMPUTERNAME",
    L"ProgramData",
    L"ALLUSERSPROFILE",
    L"PUBLIC",
    L"ProgramFiles",
    L"ProgramFiles(x86)",
    L"ProgramFiles(Arm)",
    L"ProgramW6432",
    L"CommonProgramFiles",
    L"CommonProgramFiles(x86)",
    L"CommonProgramFiles(Arm)",
    L"CommonProgramW6432",
};

// Writes indented JSON from the outside in.
class Writer {
public:
    void Open(const char* name, char bracket) {
        Begin(name);
        out_ += bracket;
        ++depth_;
        isFirst_ = true;
    }
    void Close(char bracket) {
        --depth_;
        if (!isFirst_)
            NewLine();
        out_ += bracket;
        isFirst_ = false;
    }
    void Text(const char* name, std::wstring_view text) {
        Begin(name);
        out_ += JsonString(ToUtf8Lossy(text));
    }
    void Bare(const char* name, const std::string& text) {
        Begin(name);
        out_ += text;
    }
    std::string Take() { return std::move(out_); }

private:
    void Begin(const char* name) {
        if (depth_ > 0) {
            if (!isFirst_)
                out_ += ',';
            NewLine();
        }
        isFirst_ = false;
        if (name == nullptr)
            return;
        out_ += JsonString(name);
        out_ += ": ";
    }
    void NewLine() { out_.append("\n").append(depth_ * 2, ' '); }

    std::string out_;
    std::size_t depth_ = 0;
    bool isFirst_ = true;
};

// Calls `find` for each name of a folder; of two names of one folder only the first is written.
template <typename Find>
void WriteFolders(Writer& out, bool perUser, Find&& find) {
    out.Open(machineKey::folders, '{');
    bool written[folderFlag::number + 1] = {};
    for (const ZEL::FolderToken& row : ZEL::FolderTokenTable()) {
        std::wstring path;
        if (row.perUser != perUser || written[row.folder] ||
            !find(row.folder | folderFlag::dontVerify, path))
            continue;
        written[row.folder] = true;
        out.Text(ToUtf8Lossy(row.name).c_str(), path);
    }
    out.Close('}');
}

// Folders are written as the normaliser would find them, also those that it derives from the
// calling account's, since the reader has no calling account to derive them from.
void WriteUser(Writer& out, IMachineDescription& machine, const MachineUser& user) {
    out.Open(nullptr, '{');
    out.Text(machineKey::sid, user.sid);
    out.Text(machineKey::account, user.account);
    out.Text(machineKey::domain, user.domain);
    out.Text(machineKey::profile, user.profileFolder);
    for (const machineKey::Source& row : machineKey::sources)
        if (row.source == user.source)
            out.Text(machineKey::variablesAre, row.name);
    WriteFolders(out, true, [&](int folder, std::wstring& path) {
        return ZEL::FolderOfUser(machine, user, folder, path);
    });
    out.Open(machineKey::variables, '{');
    for (const auto& [name, value] : user.variables)
        out.Text(ToUtf8Lossy(name).c_str(), value);
    out.Close('}');
    out.Close('}');
}

void WriteDrives(Writer& out, IMachineDescription& machine) {
    out.Open(machineKey::drives, '{');
    for (char letter = 'A'; letter <= 'Z'; ++letter)
        for (const machineKey::DriveKind& row : machineKey::driveKinds)
            if (row.number == machine.DriveType(static_cast<wchar_t>(letter)))
                out.Text(std::string(1, letter).c_str(), row.name);
    out.Close('}');
}

}  // namespace

bool DescribeMachine(IMachineDescription& machine, std::string* json) {
    std::vector<MachineUser> users;
    if (Failed(machine.LoadUsers(users)))
        return false;
    Writer out;
    std::wstring text;
    out.Open(nullptr, '{');
    if (machine.ComputerName(text))
        out.Text(machineKey::computerName, text);
    out.Bare(machineKey::osMajorVersion, std::to_string(machine.OsMajorVersion()));
    out.Bare(machineKey::arm, machine.IsArm() ? "true" : "false");
    if (machine.SystemDirectory(text))
        out.Text(machineKey::systemDirectory, text);
    WriteDrives(out, machine);
    WriteFolders(out, false,
                 [&](int folder, std::wstring& path) { return machine.Folder(folder, path); });
    out.Open(machineKey::variables, '{');
    for (const wchar_t* name : machineVariables)
        if (machine.ProcessVariable(name, text))
            out.Text(ToUtf8Lossy(name).c_str(), text);
    out.Close('}');
    out.Open(machineKey::users, '[');
    for (const MachineUser& user : users)
        WriteUser(out, machine, user);
    out.Close(']');
    out.Close('}');
    *json = out.Take();
    return true;
}

}  // namespace wm
