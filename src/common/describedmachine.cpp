#include "common/describedmachine.h"

#include <cpprest/json.h>

#include <stdexcept>

#include "common/foldertokens.h"
#include "common/machinekeys.h"
#include "common/patterntext.h"
#include "common/textbridge.h"

// A machine told by a JSON document, so that the store of one machine can be queried on another as
// if there. Reading is strict where the store's own documents are mild: what a description says
// wrong would make a query look in the wrong places and find nothing, so it is refused whole, with
// the place of what is wrong (users[1].folders.APPDATA). What it leaves out the machine does not
// have. The names of its members stand in machinekeys.h, for the writer as for this reader.

namespace wm {

using ZEL::HRESULT;
namespace hr = ZEL::hr;
using Json = web::json::value;

// Fills a description. Each routine gets the place in the document, for its complaint.
class MachineReader {
public:
    static std::unique_ptr<DescribedMachine> Read(const Json& document);

private:
    // Throws, with the place.
    [[noreturn]] static void Refuse(const std::string& place, const std::string& why) {
        throw std::invalid_argument(place + ": " + why);
    }
    static std::string Narrow(const utility::string_t& text) {
        return utility::conversions::to_utf8string(text);
    }
    // Calls `visit` with the name and the place of each member.
    template <typename Visit>
    static void ForEachMember(const Json& object, const std::string& place, Visit&& visit);

    // Each of these refuses a value of another kind.
    static std::wstring ReadText(const Json& value, const std::string& place);
    static std::uint32_t ReadNumber(const Json& value, const std::string& place);
    static int ReadFolderName(const std::string& name, const std::string& place);
    static std::uint32_t ReadDriveKind(const Json& value, const std::string& place);
    static VariableSource ReadSource(const Json& value, const std::string& place);
    static DescribedMachine::Folders ReadFolders(const Json& value, const std::string& place);
    static void ReadMember(const std::string& name, const Json& value, const std::string& place,
                           DescribedMachine& machine);
    static void ReadDrives(const Json& value, const std::string& place, DescribedMachine& machine);
    static DescribedMachine::User ReadUser(const Json& value, const std::string& place);
    static void ReadUserMember(const std::string& name, const Json& value, const std::string& place,
                               DescribedMachine::User& user);
};

template <typename Visit>
void MachineReader::ForEachMember(const Json& object, const std::string& place, Visit&& visit) {
    if (!object.is_object())
        Refuse(place, "an object is needed");
    for (const auto& [name, value] : object.as_object()) {
        const std::string narrow = Narrow(name);
        std::string at = place == machineKey::document ? "" : place + ".";
        visit(narrow, value, at.append(narrow));
    }
}

std::wstring MachineReader::ReadText(const Json& value, const std::string& place) {
    std::wstring text;
    if (!value.is_string())
        Refuse(place, "a text is needed");
    if (!ToWide(Narrow(value.as_string()), text) || text.find(L'\0') != std::wstring::npos)
        Refuse(place, "the text is not Unicode, or holds a NUL");
    return text;
}

std::uint32_t MachineReader::ReadNumber(const Json& value, const std::string& place) {
    if (!value.is_number() || !value.as_number().is_uint32())
        Refuse(place, "a number from 0 to 4294967295 is needed");
    return value.as_number().to_uint32();
}

int MachineReader::ReadFolderName(const std::string& name, const std::string& place) {
    std::wstring wide;
    for (const ZEL::FolderToken& row : ZEL::FolderTokenTable())
        if (ToWide(name, wide) && ZEL::EqualsNoCase(wide, row.name))
            return row.folder;
    Refuse(place, "there is no folder of this name");
}

std::uint32_t MachineReader::ReadDriveKind(const Json& value, const std::string& place) {
    const std::wstring kind = ReadText(value, place);
    for (const auto& row : machineKey::driveKinds)
        if (kind == row.name)
            return row.number;
    Refuse(place, "one of fixed, removable, remote, cdrom is needed");
}

VariableSource MachineReader::ReadSource(const Json& value, const std::string& place) {
    const std::wstring text = ReadText(value, place);
    for (const auto& row : machineKey::sources)
        if (text == row.name)
            return row.source;
    Refuse(place, "one of none, stored, session is needed");
}

DescribedMachine::Folders MachineReader::ReadFolders(const Json& value, const std::string& place) {
    DescribedMachine::Folders folders;
    ForEachMember(value, place,
                  [&](const std::string& name, const Json& folder, const std::string& at) {
                      folders[ReadFolderName(name, at)] = ReadText(folder, at);
                  });
    return folders;
}

void MachineReader::ReadDrives(const Json& value, const std::string& place,
                               DescribedMachine& machine) {
    ForEachMember(value, place,
                  [&](const std::string& name, const Json& kind, const std::string& at) {
                      const char letter = name.size() == 1 ? name[0] : '\0';
                      if (letter < 'A' || letter > 'Z')
                          Refuse(at, "a drive is one letter from A to Z");
                      machine.drives_[static_cast<wchar_t>(letter)] = ReadDriveKind(kind, at);
                  });
}

void MachineReader::ReadUserMember(const std::string& name, const Json& value,
                                   const std::string& place, DescribedMachine::User& user) {
    if (name == machineKey::sid)
        user.facts.sid = ReadText(value, place);
    else if (name == machineKey::account)
        user.facts.account = ReadText(value, place);
    else if (name == machineKey::domain)
        user.facts.domain = ReadText(value, place);
    else if (name == machineKey::profile)
        user.facts.profileFolder = ReadText(value, place);
    else if (name == machineKey::variablesAre)
        user.facts.source = ReadSource(value, place);
    else if (name == machineKey::folders)
        user.folders = ReadFolders(value, place);
    else if (name == machineKey::variables)
        ForEachMember(value, place,
                      [&](const std::string& variable, const Json& text, const std::string& at) {
                          std::wstring wide;
                          if (!ToWide(variable, wide))
                              Refuse(at, "the name is not Unicode");
                          user.facts.variables.emplace_back(wide, ReadText(text, at));
                      });
    else
        Refuse(place, "there is no such key");
}

DescribedMachine::User MachineReader::ReadUser(const Json& value, const std::string& place) {
    DescribedMachine::User user;
    user.facts.source = VariableSource::stored;
    ForEachMember(value, place,
                  [&](const std::string& name, const Json& member, const std::string& at) {
                      ReadUserMember(name, member, at, user);
                  });
    if (user.facts.sid.empty())
        Refuse(place, "a user needs a sid");
    return user;
}

void MachineReader::ReadMember(const std::string& name, const Json& value, const std::string& place,
                               DescribedMachine& machine) {
    if (name == machineKey::computerName) {
        machine.computerName_ = ReadText(value, place);
    } else if (name == machineKey::osMajorVersion) {
        machine.osMajorVersion_ = ReadNumber(value, place);
    } else if (name == machineKey::arm) {
        if (!value.is_boolean())
            Refuse(place, "true or false is needed");
        machine.isArm_ = value.as_bool();
    } else if (name == machineKey::systemDirectory) {
        machine.systemDirectory_ = ReadText(value, place);
    } else if (name == machineKey::drives) {
        ReadDrives(value, place, machine);
    } else if (name == machineKey::folders) {
        machine.folders_ = ReadFolders(value, place);
    } else if (name == machineKey::userFolders) {
        machine.userFolders_ = ReadFolders(value, place);
    } else if (name == machineKey::variables) {
        ForEachMember(value, place,
                      [&](const std::string& variable, const Json& text, const std::string& at) {
                          std::wstring wide;
                          if (!ToWide(variable, wide))
                              Refuse(at, "the name is not Unicode");
                          machine.variables_[ZEL::UpperAscii(wide)] = ReadText(text, at);
                      });
    } else if (name == machineKey::users) {
        if (!value.is_array())
            Refuse(place, "an array is needed");
        for (const Json& user : value.as_array())
            machine.users_.push_back(
                ReadUser(user, place + "[" + std::to_string(machine.users_.size()) + "]"));
    } else {
        Refuse(place, "there is no such key");
    }
}

std::unique_ptr<DescribedMachine> MachineReader::Read(const Json& document) {
    std::unique_ptr<DescribedMachine> machine(new DescribedMachine);
    ForEachMember(document, machineKey::document,
                  [&](const std::string& name, const Json& value, const std::string& place) {
                      ReadMember(name, value, place, *machine);
                  });
    return machine;
}

std::unique_ptr<DescribedMachine> DescribedMachine::Parse(std::string_view json,
                                                          std::string* error) {
    try {
        return MachineReader::Read(
            Json::parse(utility::conversions::to_string_t(std::string(json))));
    } catch (const std::exception& failure) {
        *error = failure.what();
        return nullptr;
    }
}

HRESULT DescribedMachine::ProfileSids(std::vector<std::wstring>& sids) {
    for (const User& user : users_)
        sids.push_back(user.facts.sid);
    return hr::ok;
}

HRESULT DescribedMachine::LoadUsers(std::vector<MachineUser>& users) {
    for (const User& user : users_)
        users.push_back(user.facts);
    return hr::ok;
}

namespace {

template <typename Map, typename Key>
bool Find(const Map& map, const Key& key, std::wstring& out) {
    const auto found = map.find(key);
    if (found == map.end())
        return false;
    out = found->second;
    return true;
}

}  // namespace

bool DescribedMachine::Folder(int folder, std::wstring& path) {
    return Find(folders_, folder & folderFlag::number, path);
}

bool DescribedMachine::UserFolder(const MachineUser& user, int folder, std::wstring& path) {
    constexpr int profileFolder = 0x28;
    const int number = folder & folderFlag::number;
    for (const User& known : users_)
        if (known.facts.sid == user.sid && Find(known.folders, number, path))
            return true;
    if (user.profileFolder.empty())
        return false;
    if (number == profileFolder) {
        path = user.profileFolder;
        return true;
    }
    std::wstring below;
    if (!Find(userFolders_, number, below))
        return false;
    path = user.profileFolder + L"\\" + below;
    return true;
}

std::uint32_t DescribedMachine::DriveType(wchar_t letter) {
    const auto found = drives_.find(letter);
    return found != drives_.end() ? found->second : driveType::none;
}

bool DescribedMachine::SystemDirectory(std::wstring& path) {
    path = systemDirectory_;
    return !path.empty();
}

bool DescribedMachine::ProcessVariable(const std::wstring& name, std::wstring& value) {
    return Find(variables_, ZEL::UpperAscii(name), value);
}

bool DescribedMachine::ComputerName(std::wstring& name) {
    name = computerName_;
    return !name.empty();
}

}  // namespace wm
