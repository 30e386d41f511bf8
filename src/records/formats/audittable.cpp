#include "records/formats/audittable.h"

#include <charconv>

// A call that failed has done nothing to its object: it becomes `generic`, so that nobody who asks
// who has deleted a file is told of one who wanted to. What it asked for stands in `unmapped`, as
// does its result. A connect that is still under way counts as done.

namespace zel {

namespace {

using enum Conversion;

constexpr std::string_view call = "SYSCALL.syscall";
constexpr std::string_view result = "SYSCALL.success";

// The access of open: anything but reading, or cutting the file off.
bool OpensForWriting(std::string_view flags, std::string_view) {
    constexpr unsigned long long writing = 3, truncating = 0x200;
    unsigned long long bits = 0;
    std::from_chars(flags.data(), flags.data() + flags.size(), bits, 16);
    return (bits & writing) != 0 || (bits & truncating) != 0;
}

bool IsFolderMode(std::string_view mode, std::string_view) {
    return mode.starts_with("04");
}

constexpr Condition failed{result, Is, "no"};
constexpr Condition notUnderWay{"SYSCALL.exit", IsNot, "-115|EINPROGRESS"};
constexpr Condition creates{"PATH.CREATE.name", IsThere, {}};
constexpr Condition isInternet{"SOCKADDR.saddr_fam", Is, "inet|inet6"};
constexpr Condition isLocal{"SOCKADDR.saddr_fam", Is, "local"};
constexpr Condition deletesFolder{"PATH.DELETE.mode", IsFolderMode, {}};

constexpr Condition isExec{call, Is, "execve|execveat"};
constexpr Condition isOpen{call, Is, "open|openat|openat2|creat"};
constexpr Condition isDelete{call, Is, "unlink|unlinkat|rmdir"};
constexpr Condition isRename{call, Is, "rename|renameat|renameat2"};
constexpr Condition isMakeFolder{call, Is, "mkdir|mkdirat"};
constexpr Condition isMake{call, Is, "link|linkat|symlink|symlinkat|mknod|mknodat"};
constexpr Condition isSecure{call, Is,
                             "chmod|fchmod|fchmodat|fchmodat2|chown|fchown|lchown|fchownat"};
constexpr Condition isAttribute{
    call, Is,
    "setxattr|lsetxattr|fsetxattr|removexattr|lremovexattr|fremovexattr|utime|utimes|utimensat|"
    "futimesat"};
constexpr Condition isTruncate{call, Is, "truncate|ftruncate"};
constexpr Condition isConnect{call, Is, "connect"};
constexpr Condition isAccept{call, Is, "accept|accept4"};
constexpr Condition isLoad{call, Is, "init_module|finit_module"};
constexpr Condition isUnload{call, Is, "delete_module"};
constexpr Condition isExit{call, Is, "exit|exit_group"};

constexpr Condition exec[] = {isExec};
constexpr Condition execFailed[] = {isExec, failed};
constexpr Condition exits[] = {isExit};
constexpr Condition fileFailed[] = {failed};
constexpr Condition openCreate[] = {isOpen, creates};
constexpr Condition creat[] = {{call, Is, "creat"}};
constexpr Condition openWrite[] = {{call, Is, "open"}, {"SYSCALL.a1", OpensForWriting, {}}};
constexpr Condition openAtWrite[] = {{call, Is, "openat"}, {"SYSCALL.a2", OpensForWriting, {}}};
constexpr Condition opens[] = {isOpen};
constexpr Condition deleteFolder[] = {isDelete, deletesFolder};
constexpr Condition deletes[] = {isDelete};
constexpr Condition renameFolder[] = {isRename, deletesFolder};
constexpr Condition renames[] = {isRename};
constexpr Condition makeFolder[] = {isMakeFolder};
constexpr Condition makes[] = {isMake};
constexpr Condition secures[] = {isSecure};
constexpr Condition attributes[] = {isAttribute};
constexpr Condition truncates[] = {isTruncate};
constexpr Condition loads[] = {isLoad};
constexpr Condition loadFailed[] = {isLoad, failed};
constexpr Condition unloads[] = {isUnload};
constexpr Condition internetFailed[] = {isInternet, failed, notUnderWay};
constexpr Condition connects[] = {isConnect, isInternet};
constexpr Condition accepts[] = {isAccept, isInternet};
constexpr Condition internet[] = {isInternet};
constexpr Condition localFailed[] = {isConnect, isLocal, failed, notUnderWay};
constexpr Condition connectsLocal[] = {isConnect, isLocal};
constexpr Condition loginDone[] = {{"USER_LOGIN.res", Is, "success|1"}};
constexpr Condition sessionBegun[] = {{"USER_START.res", Is, "success|1"}};

constexpr Member actor[] = {{"path", text, "SYSCALL.exe"},
                            {"cmd_line", text, "PROCTITLE.proctitle"},
                            {"pid", number, "SYSCALL.pid"}};
constexpr Member program[] = {{"path", text, "SYSCALL.exe"},
                              {"cmd_line", text, "EXECVE.cmdline|PROCTITLE.proctitle"},
                              {"pid", number, "SYSCALL.pid"}};
constexpr Member failedProgram[] = {{"path", text, "PATH.NORMAL.name"},
                                    {"cmd_line", text, "EXECVE.cmdline"}};
constexpr Member commandAlone[] = {{"cmd_line", text, "EXECVE.cmdline"}};
constexpr Member caller[] = {{"path", text, "SYSCALL.exe"}, {"pid", number, "SYSCALL.pid"}};
constexpr Member anyPath[] = {{"path", text, "PATH.CREATE.name|PATH.DELETE.name|PATH.NORMAL.name"}};
constexpr Member created[] = {{"path", text, "PATH.CREATE.name"}};
constexpr Member opened[] = {{"path", text, "PATH.NORMAL.name|PATH.CREATE.name"}};
constexpr Member deleted[] = {{"path", text, "PATH.DELETE.name"}};
constexpr Member changed[] = {{"path", text, "PATH.NORMAL.name"}};
constexpr Member module[] = {{"path", text, "KERN_MODULE.name|PATH.NORMAL.name"}};
constexpr Member remote[] = {{"dst_ip", text, "SOCKADDR.laddr"},
                             {"dst_port", number, "SOCKADDR.lport"},
                             {"direction_id", constant, R"({"value":[2]})"}};
constexpr Member peer[] = {{"src_ip", text, "SOCKADDR.laddr"},
                           {"src_port", number, "SOCKADDR.lport"},
                           {"direction_id", constant, R"({"value":[1]})"}};
constexpr Member address[] = {{"dst_ip", text, "SOCKADDR.laddr"},
                              {"dst_port", number, "SOCKADDR.lport"}};
constexpr Member localSocket[] = {{"name", text, "SOCKADDR.path"}};
constexpr Member loginActor[] = {{"path", text, "USER_LOGIN.exe"},
                                 {"pid", number, "USER_LOGIN.pid"}};
constexpr Member login[] = {{"id", number, "USER_LOGIN.ses"},
                            {"user_name", plainText, "USER_LOGIN.acct|USER_LOGIN.ID"},
                            {"session_state", constant, R"(["logged-on"])"}};
constexpr Member loginFailed[] = {{"user_name", plainText, "USER_LOGIN.acct|USER_LOGIN.ID"}};
constexpr Member logoutActor[] = {{"path", text, "USER_LOGOUT.exe"},
                                  {"pid", number, "USER_LOGOUT.pid"}};
constexpr Member logout[] = {{"id", number, "USER_LOGOUT.ses"},
                             {"user_name", plainText, "USER_LOGOUT.acct|USER_LOGOUT.ID"},
                             {"session_state", constant, R"(["logged-off"])"}};
constexpr Member startActor[] = {{"path", text, "USER_START.exe"},
                                 {"pid", number, "USER_START.pid"}};
constexpr Member start[] = {{"id", number, "USER_START.ses"},
                            {"user_name", plainText, "USER_START.acct|USER_START.ID"}};
constexpr Member endActor[] = {{"path", text, "USER_END.exe"}, {"pid", number, "USER_END.pid"}};
constexpr Member end[] = {{"id", number, "USER_END.ses"},
                          {"user_name", plainText, "USER_END.acct|USER_END.ID"}};

// Conditions, target, action, needed field, correlation, actor, target, result.
constexpr MappingRow rows[] = {
    {{}, execFailed, "process", "generic", "PATH.NORMAL.name", {}, caller, failedProgram, {}},
    {{}, exec, "process", "launch", "SYSCALL.exe", {}, {}, program, {}},
    {{}, {}, "process", "generic", "EXECVE.cmdline", {}, caller, commandAlone, {}},
    {{}, exits, "process", "terminate", "SYSCALL.exe", {}, caller, program, {}},

    {{}, loadFailed, "module", "generic", "KERN_MODULE.name", {}, actor, module, {}},
    {{}, loads, "module", "load", "KERN_MODULE.name|PATH.NORMAL.name", {}, actor, module, {}},
    {{}, unloads, "module", "unload", "KERN_MODULE.name", {}, actor, module, {}},

    {{}, internetFailed, "network", "generic", "SOCKADDR.laddr", {}, actor, address, {}},
    {{}, connects, "network", "connect", "SOCKADDR.laddr", {}, actor, remote, {}},
    {{}, accepts, "network", "accept", "SOCKADDR.laddr", {}, actor, peer, {}},
    {{}, internet, "network", "generic", "SOCKADDR.laddr", {}, actor, address, {}},
    {{}, localFailed, "kernel_object", "generic", "SOCKADDR.path", {}, actor, localSocket, {}},
    {{}, connectsLocal, "kernel_object", "connect", "SOCKADDR.path", {}, actor, localSocket, {}},

    {{}, fileFailed, "file", "generic", anyPath[0].from, {}, actor, anyPath, {}},
    {{}, openCreate, "file", "create", "PATH.CREATE.name", {}, actor, created, {}},
    {{}, creat, "file", "modify", opened[0].from, {}, actor, opened, {}},
    {{}, openWrite, "file", "modify", opened[0].from, {}, actor, opened, {}},
    {{}, openAtWrite, "file", "modify", opened[0].from, {}, actor, opened, {}},
    {{}, opens, "file", "open", opened[0].from, {}, actor, opened, {}},
    {{}, deleteFolder, "directory", "delete", "PATH.DELETE.name", {}, actor, deleted, {}},
    {{}, deletes, "file", "delete", "PATH.DELETE.name", {}, actor, deleted, {}},
    {{}, renameFolder, "directory", "rename", "PATH.DELETE.name", {}, actor, deleted, created},
    {{}, renames, "file", "rename", "PATH.DELETE.name", {}, actor, deleted, created},
    {{}, makeFolder, "directory", "create", "PATH.CREATE.name", {}, actor, created, {}},
    {{}, makes, "file", "create", "PATH.CREATE.name", {}, actor, created, {}},
    {{}, secures, "file", "set_security", "PATH.NORMAL.name", {}, actor, changed, {}},
    {{}, attributes, "file", "set_attributes", "PATH.NORMAL.name", {}, actor, changed, {}},
    {{}, truncates, "file", "modify", "PATH.NORMAL.name", {}, actor, changed, {}},

    {{}, loginDone, "session", "logon", {}, {}, loginActor, login, {}},
    {{}, {}, "session", "generic", "USER_LOGIN.res", {}, loginActor, loginFailed, {}},
    {{}, {}, "session", "logoff", "USER_LOGOUT.ses", {}, logoutActor, logout, {}},
    {{}, sessionBegun, "session", "open", {}, {}, startActor, start, {}},
    {{}, {}, "session", "generic", "USER_START.res", {}, startActor, start, {}},
    {{}, {}, "session", "close", "USER_END.ses", {}, endActor, end, {}},
};

}  // namespace

const MappingTable auditTable{rows, {}, false};

}  // namespace zel
