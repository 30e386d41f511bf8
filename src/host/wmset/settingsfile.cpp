#include "settingsfile.h"

#include <algorithm>
#include <boost/property_tree/ini_parser.hpp>
#include <charconv>
#include <sstream>

#include "common/filesystem.h"
#include "common/hostservices.h"
#include "common/textbridge.h"

// The settings in one text file that people read and edit. It is read by a parser of the common
// form of sections with lines of name=number; comments and blank lines are allowed when it is read
// and are gone after a save, which writes the file anew in the order of the names.
//
// Nothing is kept between two operations. Each opening reads the file, so that an edit counts at
// once; each save reads it again, changes the values that its key object wrote, and replaces the
// whole. So two programs that save different values both keep theirs, unless one reads between the
// other's reading and replacing: within the process the lock rules that out, and between processes
// the last one wins, with a file that is whole in any case. A section whose last value goes, goes
// with it.
//
// A file that can't be read as settings is never replaced: what somebody wrote there is worth more
// than what is to be saved, and the host is told the line. A file that is not there is an empty
// one. Names that the form can't hold, since they would be read back as something else, are refused
// before they get here.

namespace wmset {

using ZEL::TobResult;

namespace {

using Tree = boost::property_tree::ptree;

constexpr std::string_view blanks = " \t\r";

// Asked each time: a host may tell the token after the component was loaded.
std::wstring FilePath() {
    std::wstring path;
    return wm::ResolvePathVariable(L"%ZELSettingsFile%", path) ? path : std::wstring();
}

// Tells the host the file, and the place in it.
TobResult Refuse(const std::wstring& path, const std::string& what) {
    wm::ErrorReport()
        .SetError(ZEL::hr::invalidData, "Settings")
        .AddDetail("File", wm::ToUtf8Lossy(path))
        .AddDetail("Failing Reason", what)
        .Submit();
    return ZEL::TOBERR_FAIL;
}

// The whole text has to be a number: a sign, a blank or a unit behind it would hide a mistake.
bool ToNumber(const std::string& text, std::uint32_t* number) {
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, *number);
    return parsed.ec == std::errc() && parsed.ptr == end && !text.empty();
}

std::string_view Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

// "line 5: " for a value, since the parser keeps no line numbers. An empty section stands for what
// comes ahead of the first one.
std::string LineOf(const std::string& text, const std::string& keyPath, const std::string& name) {
    std::istringstream in(text);
    std::string line;
    std::string section;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::string_view content = Trim(line);
        if (content.starts_with('['))
            section = Trim(content.substr(1, content.find(']') - 1));
        else if (section == keyPath && Trim(content.substr(0, content.find('='))) == name)
            return "line " + std::to_string(number) + ": ";
    }
    return {};
}

// Stops at the first value that is wrong; `keys` is then not used.
TobResult ToKeys(const std::wstring& path, const std::string& text, const Tree& tree,
                 std::map<std::string, SettingsFile::Numbers>* keys) {
    for (const auto& [keyPath, values] : tree) {
        if (values.empty())
            return Refuse(path, LineOf(text, "", keyPath) + "\"" + keyPath +
                                    "\" stands outside of a section");
        for (const auto& [name, value] : values) {
            std::uint32_t number = 0;
            if (!ToNumber(value.data(), &number))
                return Refuse(path, LineOf(text, keyPath, name) + "\"" + value.data() +
                                        "\" is no number from 0 to 4294967295");
            (*keys)[keyPath][name] = number;
        }
    }
    return ZEL::TOB_OK;
}

}  // namespace

// Blanks at the ends would be trimmed, brackets and equals signs end a name, and the two signs at
// the start make a comment of the line.
bool SettingsFile::IsName(std::string_view name) noexcept {
    const auto breaksLine = [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
    };
    return !name.empty() && Trim(name) == name && name.front() != ';' && name.front() != '#' &&
           name.find_first_of("[]=") == std::string_view::npos &&
           std::none_of(name.begin(), name.end(), breaksLine);
}

TobResult SettingsFile::ReadLocked(Keys* keys) {
    const std::wstring path = FilePath();
    if (path.empty()) {
        *keys = inMemory_;
        return ZEL::TOB_OK;
    }
    if (!wm::FileExists(path))
        return ZEL::TOB_OK;
    std::string text;
    if (Failed(wm::ReadWholeFile(path, &text)))
        return Refuse(path, "the file can't be read");
    Tree tree;
    try {
        std::istringstream in(text);
        boost::property_tree::read_ini(in, tree);
    } catch (const boost::property_tree::ini_parser_error& error) {
        return Refuse(path, "line " + std::to_string(error.line()) + ": " + error.message());
    }
    return ToKeys(path, text, tree, keys);
}

TobResult SettingsFile::Load(const std::string& keyPath, Numbers* numbers) {
    const wm::Hold hold(lock_);
    Keys keys;
    const TobResult result = ReadLocked(&keys);
    if (Succeeded(result))
        *numbers = std::move(keys[keyPath]);
    return result;
}

TobResult SettingsFile::Save(const std::string& keyPath, const Changes& changes) {
    const wm::Hold hold(lock_);
    Keys keys;
    const TobResult result = ReadLocked(&keys);
    if (Failed(result))
        return result;
    Numbers& numbers = keys[keyPath];
    for (const auto& [name, number] : changes) {
        if (number)
            numbers[name] = *number;
        else
            numbers.erase(name);
    }
    if (numbers.empty())
        keys.erase(keyPath);
    const std::wstring path = FilePath();
    if (path.empty()) {
        inMemory_ = std::move(keys);
        return ZEL::TOB_OK;
    }
    std::ostringstream out;
    for (const auto& [section, values] : keys) {
        out << '[' << section << "]\n";
        for (const auto& [name, number] : values)
            out << name << '=' << number << '\n';
    }
    return Succeeded(wm::ReplaceWholeFile(path, out.str()))
               ? ZEL::TOB_OK
               : Refuse(path, "the file can't be written");
}

}  // namespace wmset
