#include "common/foldertokens.h"

// Well-known folders, by the names of their tokens and the numbers that the shell of Windows gives
// them. The first name that a path begins with decides, and names are compared whole with their
// separator, so that no name hides a longer one.

namespace ZEL {

namespace {

// Numbers repeat where two names mean one folder (PERSONAL and MYDOCUMENTS), which queries may use
// alike.
constexpr FolderToken rows[] = {
    {L"DESKTOP", 0x00, true},
    {L"INTERNET", 0x01, false},
    {L"PROGRAMS", 0x02, true},
    {L"CONTROLS", 0x03, false},
    {L"PRINTERS", 0x04, true},
    {L"PERSONAL", 0x05, true},
    {L"FAVORITES", 0x06, true},
    {L"STARTUP", 0x07, true},
    {L"RECENT", 0x08, true},
    {L"SENDTO", 0x09, true},
    {L"BITBUCKET", 0x0A, false},
    {L"STARTMENU", 0x0B, true},
    {L"MYDOCUMENTS", 0x05, true},
    {L"MYMUSIC", 0x0D, true},
    {L"MYVIDEO", 0x0E, true},
    {L"DESKTOPDIRECTORY", 0x10, true},
    {L"DRIVES", 0x11, false},
    {L"NETWORK", 0x12, false},
    {L"NETHOOD", 0x13, true},
    {L"FONTS", 0x14, false},
    {L"TEMPLATES", 0x15, true},
    {L"COMMON_STARTMENU", 0x16, false},
    {L"COMMON_PROGRAMS", 0x17, false},
    {L"COMMON_STARTUP", 0x18, false},
    {L"COMMON_DESKTOPDIRECTORY", 0x19, false},
    {L"APPDATA", 0x1A, true},
    {L"PRINTHOOD", 0x1B, true},
    {L"LOCAL_APPDATA", 0x1C, true},
    {L"ALTSTARTUP", 0x1D, true},
    {L"COMMON_ALTSTARTUP", 0x1E, false},
    {L"COMMON_FAVORITES", 0x1F, false},
    {L"INTERNET_CACHE", 0x20, true},
    {L"COOKIES", 0x21, true},
    {L"HISTORY", 0x22, true},
    {L"COMMON_APPDATA", 0x23, false},
    {L"WINDOWS", 0x24, false},
    {L"SYSTEM", 0x25, false},
    {L"MYPICTURES", 0x27, true},
    {L"PROFILE", 0x28, true},
    {L"SYSTEMX86", 0x29, false},
    {L"PROGRAM_FILES_COMMONX86", 0x2C, false},
    {L"PROGRAM_FILES_COMMON", 0x2B, false},
    {L"PROGRAM_FILESX86", 0x2A, false},
    {L"PROGRAM_FILES", 0x26, false},
    {L"COMMON_TEMPLATES", 0x2D, false},
    {L"COMMON_DOCUMENTS", 0x2E, false},
    {L"COMMON_ADMINTOOLS", 0x2F, false},
    {L"ADMINTOOLS", 0x30, true},
    {L"CONNECTIONS", 0x31, false},
    {L"COMMON_MUSIC", 0x35, false},
    {L"COMMON_PICTURES", 0x36, false},
    {L"COMMON_VIDEO", 0x37, false},
    {L"RESOURCES_LOCALIZED", 0x39, false},
    {L"RESOURCES", 0x38, false},
    {L"COMMON_OEM_LINKS", 0x3A, false},
    {L"CDBURN_AREA", 0x3B, true},
    {L"COMPUTERSNEARME", 0x3D, false},
};

}  // namespace

std::span<const FolderToken> FolderTokenTable() noexcept {
    return rows;
}

}  // namespace ZEL
