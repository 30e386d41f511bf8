#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz.h"
#include "records/formats/formats.h"
#include "records/jsonfields.h"

// Windows event logs. Input: one byte of choices; then what stands behind the head of a log's first
// chunk, that is, its records. Whatever it is, each event comes out as a record, as passed over or
// as refused; a record is JSON; and reading it again gives the same.

namespace {

using namespace zel;
using ZEL::fuzz::Check;

constexpr std::size_t fileHead = 4096, chunkHead = 512, chunk = 65536;

// A log with one chunk of these records.
std::string LogOf(std::string_view records) {
    std::string log(fileHead + chunk, '\0');
    log.replace(0, 7, "ElfFile");
    log[42] = 1;
    log.replace(fileHead, 7, "ElfChnk");
    records = records.substr(0, chunk - chunkHead);
    const auto end = static_cast<std::uint32_t>(chunkHead + records.size());
    std::memcpy(log.data() + fileHead + 48, &end, sizeof(end));
    log.replace(fileHead + chunkHead, records.size(), records);
    return log;
}

// Gives few bytes at a time, as pipes do.
class Bytes final : public ByteStream {
public:
    Bytes(std::string_view bytes, std::size_t most) : bytes_(bytes), most_(most) {}
    long Read(char* buffer, std::size_t size, std::string*) override {
        const std::size_t count = std::min({size, most_, bytes_.size()});
        std::copy_n(bytes_.begin(), count, buffer);
        bytes_.remove_prefix(count);
        return static_cast<long>(count);
    }

private:
    std::string_view bytes_;
    const std::size_t most_;
};

std::vector<std::string> ReadLog(std::string_view log, std::size_t most, bool recovers) {
    Bytes bytes(log, most);
    Mapper mapper({true, true, recovers});
    const auto source = FindFormat("evtx")->makeFileReader(bytes, mapper);
    std::vector<std::string> items;
    JsonFields json;
    SourceFields fields;
    for (SourceItem item; source->Next(&item);) {
        const bool hasRecord = item.fate == EventFate::record || item.isKept;
        Check(hasRecord == !item.record.empty(), {"a record or none", item.record});
        Check(hasRecord || !item.problem.empty(), {"refused for nothing"});
        fields.Clear();
        Check(!hasRecord || json.Read(item.record, &fields),
              {"a record that is no JSON", json.Error(), item.record});
        items.push_back(hasRecord ? item.record : std::string(item.problem));
    }
    items.push_back(source->Error());
    return items;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const bool recovers = (data[0] & 1) != 0;
    const bool isCut = (data[0] & 2) != 0;
    std::string log = LogOf({reinterpret_cast<const char*>(data) + 1, size - 1});
    if (isCut)
        log.resize(log.size() - chunk / 2);
    Check(ReadLog(log, log.size(), recovers) == ReadLog(log, 4099, recovers),
          {"read in pieces it is another log"});
    return 0;
}
