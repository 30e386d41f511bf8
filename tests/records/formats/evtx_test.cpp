#include <gmock/gmock.h>
#include <libevtx/features.h>
#undef LIBEVTX_HAVE_BFIO  // its header is no part of the package
#include <libevtx.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "records/formats/readinput.h"
#include "records/formats/windowsxml.h"
#include "records/recordreader.h"

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace zel {
namespace {

std::string Unpacked(const std::string& path) {
    std::string whole;
    InputFiles files([](int) { return true; });
    const auto take = [&](const std::string&, ByteStream& bytes) {
        std::string error;
        char buffer[65536];
        for (long got = 0; (got = bytes.Read(buffer, sizeof(buffer), &error)) > 0;)
            whole.append(buffer, static_cast<std::size_t>(got));
        return true;
    };
    std::string error;
    EXPECT_EQ(files.Read(path, take, &error), InputEnd::all) << error;
    return whole;
}

// The events' XML, as a library reads it.
std::vector<std::string> XmlOf(const std::string& path) {
    std::vector<std::string> texts;
    libevtx_file_t* file = nullptr;
    int count = 0;
    EXPECT_EQ(libevtx_file_initialize(&file, nullptr), 1);
    EXPECT_EQ(libevtx_file_open(file, path.c_str(), LIBEVTX_OPEN_READ, nullptr), 1);
    libevtx_file_get_number_of_records(file, &count, nullptr);
    for (int i = 0; i < count; ++i) {
        libevtx_record_t* record = nullptr;
        std::size_t size = 0;
        libevtx_file_get_record(file, i, &record, nullptr);
        libevtx_record_get_utf8_xml_string_size(record, &size, nullptr);
        std::string text(size, '\0');
        libevtx_record_get_utf8_xml_string(record, reinterpret_cast<std::uint8_t*>(text.data()),
                                           size, nullptr);
        libevtx_record_free(&record, nullptr);
        text.resize(text.find('\0'));
        texts.push_back(text);
    }
    libevtx_file_free(&file, nullptr);
    return texts;
}

// Without what the two write in other ways: decimals of times, zeros of numbers, ends of lines.
std::string Alike(std::string_view text) {
    std::string alike(text);
    std::erase(alike, '\r');
    if (alike.starts_with("0x"))
        alike.erase(2, std::min(alike.find_first_not_of('0', 2), alike.size() - 1) - 2);
    if (alike.size() > 20 && alike.ends_with('Z') && alike[10] == 'T')
        alike.resize(23);
    return alike;
}

std::multimap<std::string, std::string> FactsOf(const SourceFields& fields) {
    std::multimap<std::string, std::string> facts;
    for (const SourceField& field : fields.All())
        if (field.name.find("xmlns") == field.name.npos)
            facts.emplace(field.name, Alike(field.text));
    return facts;
}

class EvtxFiles : public testing::TestWithParam<const char*> {};

// All that the library finds in an event stands in the kept record, under the same name.
TEST_P(EvtxFiles, AreReadAsALibraryReadsThem) {
    const std::string path = testing::TempDir() + "/evtx_test." + std::to_string(::getpid());
    std::ofstream(path, std::ios::binary) << Unpacked(GetParam());
    const std::vector<std::string> xml = XmlOf(path);
    std::filesystem::remove(path);
    MappingOptions options;
    options.keepsAll = true;
    const ReadInput read(GetParam(), options);
    ASSERT_EQ(read.records.size(), xml.size());
    RecordReader record;
    for (std::size_t i = 0; i < xml.size(); ++i) {
        SourceFields fields;
        ASSERT_EQ(ReadEventXml(xml[i], &fields), XmlRead::whole);
        ASSERT_TRUE(record.Read(read.records[i]));
        const SourceField* const unmapped = record.Find("unmapped.System.Version");
        ASSERT_TRUE(unmapped != nullptr);
        for (const auto& [name, text] : FactsOf(fields)) {
            const std::string shown =
                name.starts_with("EventData.") ? name.substr(name.find('.') + 1) : name;
            if (const SourceField* const own = record.Find("unmapped." + shown)) {
                EXPECT_EQ(Alike(own->text), text) << i << " " << name;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, EvtxFiles,
                         testing::Values(ZEL_EXAMPLES "/security.evtx.xz",
                                         ZEL_RECORD_DATA "/evtx/new-user-security.evtx.xz"));

// A template that names one long value again and again is no event.
TEST(EvtxFile, CanNotGrowWithoutBound) {
    using namespace std::string_literals;
    const auto number = [](std::uint32_t value, int bytes) {
        std::string text;
        for (; bytes > 0; --bytes, value >>= 8)
            text.push_back(static_cast<char>(value & 0xFF));
        return text;
    };
    const std::size_t body = 512 + 24 + 4 + 10 + 24;  // where the template's fragment stands
    std::string fragment = "\x0F\1\1\0\1"s + number(0, 2) + number(0, 4) +
                           number(static_cast<std::uint32_t>(body) + 15, 4) + number(0, 6) +
                           number(1, 2) + "E\0\0\0"s + "\2"s;
    for (int i = 0; i < 5000; ++i)
        fragment += "\x0D\0\0\1"s;
    const std::string xml =
        "\x0F\1\1\0\x0C\1"s + number(0, 4) + number(static_cast<std::uint32_t>(body) - 24, 4) +
        std::string(20, '\0') + number(static_cast<std::uint32_t>(fragment.size()), 4) + fragment +
        number(1, 4) + number(20000, 2) + "\1\0"s + std::string(20000, 'a');
    const auto size = static_cast<std::uint32_t>(xml.size() + 28);
    std::string log(4096 + 65536, '\0');
    log.replace(0, 7, "ElfFile").replace(4096, 7, "ElfChnk");
    log.replace(4096 + 48, 4, number(512 + size, 4));
    log.replace(4096 + 512, size,
                "**\0\0"s + number(size, 4) + std::string(16, '\0') + xml + number(size, 4));
    const std::string path = testing::TempDir() + "/evtx_bound." + std::to_string(::getpid());
    std::ofstream(path, std::ios::binary) << log;
    const ReadInput read(path);
    std::filesystem::remove(path);
    EXPECT_THAT(read.refused, testing::ElementsAre("the event is damaged (chunk 1)"));
}

TEST(EvtxFile, DamageIsToldAndRecovered) {
    const std::string path = ZEL_RECORD_DATA "/evtx/sample_with_a_bad_chunk_magic.evtx.xz";
    MappingOptions recovers;
    recovers.recovers = true;
    const ReadInput plain(path), recovered(path, recovers);
    EXPECT_EQ(plain.noRule.size(), 267U);
    EXPECT_EQ(recovered.noRule.size(), 267U + 81U);
    EXPECT_THAT(plain.refused, testing::Contains("a chunk has no mark (chunk 11)"));
    EXPECT_EQ(plain.refused.size(), 5U);
}

}  // namespace
}  // namespace zel
