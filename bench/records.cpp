#include "records.h"

#include <unistd.h>

#include <cstdio>

namespace bench {

namespace {

std::string TimeText(std::size_t milliseconds) {
    char text[32];
    std::snprintf(text, sizeof(text), "2026-03-%02uT%02u:%02u:%02u.%03uZ",
                  static_cast<unsigned>(milliseconds / 86400000 % 28 + 1),
                  static_cast<unsigned>(milliseconds / 3600000 % 24),
                  static_cast<unsigned>(milliseconds / 60000 % 60),
                  static_cast<unsigned>(milliseconds / 1000 % 60),
                  static_cast<unsigned>(milliseconds % 1000));
    return text;
}

const char* const actors[] = {R"(C:\\Windows\\System32\\svchost.exe)",
                              R"(C:\\Windows\\System32\\WindowsPowerShell\\v1.0\\powershell.exe)",
                              R"(C:\\Program Files\\Microsoft Office\\root\\Office16\\WINWORD.EXE)",
                              R"(C:\\Windows\\explorer.exe)"};

std::string Target(std::size_t i) {
    const std::string number = std::to_string(i);
    switch (i % 3) {
        case 0:
            return R"("target":{"object_type":"file","path":{"value":["C:\\Users\\analyst\\AppData\\Local\\Temp\\report-)" +
                   number + R"(.docx"]}}},"action":["create"])";
        case 1:
            return R"("target":{"object_type":"network","dst_ip":{"value":["10.20.)" +
                   std::to_string(i / 250 % 250) + "." + std::to_string(i % 250) +
                   R"("]},"src_ip":{"value":["172.18.39.5"]}}},"action":["connect"])";
        default:
            return R"("target":{"object_type":"reg_value","path":{"value":["HKEY_LOCAL_MACHINE\\Software\\Vendor\\Agent\\State\\Value)" +
                   number + R"("]},"data":{"value":["0x00000001"]}}},"action":["set"])";
    }
}

}  // namespace

std::vector<std::string> MakeRecords(std::size_t count) {
    std::vector<std::string> records;
    records.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        records.push_back(
            R"({"artifacts":{"actor":{"object_type":"process","path":{"value":[")" +
            std::string(actors[i / 7 % 4]) + R"("]},"pid":{"value":[)" +
            std::to_string(1000 + i % 5000) +
            R"(]},"uid":{"value":["905CC552-2045-5CC5-0000-00105B2A0100"]},"cmd_line":{"value":["\"C:\\Windows\\System32\\svchost.exe\" -k netsvcs -p -s Schedule"]},"sha2":{"value":["9F64AF24B1C1CB6B0F8A5C1E6B9B5E2C7F1D4A3B2C1D0E9F8A7B6C5D4E3F2A1B"]}},)" +
            Target(i) + R"(,"begin_time":{"value":")" + TimeText(i * 7) +
            R"("},"type_id":{"value":[8001]},"correlation_uid":{"value":["905cc552-2045-5cc5-0000-00105b2a0100"]},"seq_num":)" +
            std::to_string(i) + "}");
    }
    return records;
}

TempFolder::TempFolder(const char* name)
    : path_(std::filesystem::temp_directory_path() /
            ("zelstore-bench-" + std::string(name) + "-" + std::to_string(::getpid()))) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace bench
