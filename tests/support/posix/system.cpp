#include "support/system.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

namespace ZEL::test {

namespace fs = std::filesystem;

const wchar_t* const hostLibrary = L"libwmLib";

void* ExportOf(const std::wstring& library, const char* name) {
    const std::string path = fs::path(library + L".so").string();
    void* const loaded = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(loaded, nullptr) << ::dlerror();
    return loaded != nullptr ? ::dlsym(loaded, name) : nullptr;
}

fs::path MakeTempFolder() {
    std::string pattern = testing::TempDir() + "zelstore-XXXXXX";
    EXPECT_NE(::mkdtemp(pattern.data()), nullptr) << pattern;
    return pattern;
}

void RemoveTempFolder(const fs::path& folder) {
    std::error_code error;
    fs::remove_all(folder, error);
}

void SetEnvironment(const std::string& name, const std::string& value) {
    EXPECT_EQ(::setenv(name.c_str(), value.c_str(), 1), 0);
}

bool LinkFolder(const fs::path& target, const fs::path& link) {
    fs::create_directory_symlink(target, link);
    return true;
}

bool CanRemoveFolderLinks() {
    return true;
}

bool LinkFile(const fs::path& target, const fs::path& link) {
    fs::create_symlink(target, link);
    return true;
}

void MakeFolderWithoutUnicode(const fs::path& parent) {
    fs::create_directory(parent / "not UTF-8: \xFF");
}

void OpenToOthers(const fs::path& file) {
    fs::permissions(file, fs::perms::all);
}

bool IsForItsOwnerAlone(const fs::path& path) {
    return (fs::status(path).permissions() & (fs::perms::group_all | fs::perms::others_all)) ==
           fs::perms::none;
}

}  // namespace ZEL::test
