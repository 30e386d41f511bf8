#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "records/formats/lineformats.h"
#include "records/input/inputfiles.h"
#include "records/input/linereader.h"

namespace zel {

// What came of the events of a file that may be packed.
struct ReadInput {
    std::vector<std::string> records;
    std::vector<std::string> noRule;   // "Security 4658"
    std::vector<std::string> refused;  // the reason
    std::vector<std::string> asTheyAre;
    std::string error;

    explicit ReadInput(const std::string& path, MappingOptions options = {},
                       const char* format = nullptr) {
        InputFiles files([](int) { return true; });
        const Format* const forced = format != nullptr ? FindFormat(format) : nullptr;
        const auto take = [&](const std::string&, PeekStream& bytes) {
            Mapper mapper(options);
            const std::string head = bytes.Peek(8, [](const std::string&) { return false; });
            if (const Format* const whole = FindFileFormat(head)) {
                const auto source = whole->makeFileReader(bytes, mapper);
                Drain(*source);
                error += source->Error();
                return true;
            }
            LineFormats formats(mapper, forced);
            LineReader reader(bytes);
            for (std::string line; reader.Next(&line) == LineReader::Status::line;)
                if (formats.Give(line, reader.LineNumber()))
                    Drain(formats);
                else
                    asTheyAre.push_back(line);
            formats.End();
            Drain(formats);
            error += reader.Error();
            return true;
        };
        std::string problem;
        EXPECT_NE(files.Read(path, take, &problem), InputEnd::stopped);
        error += problem;
    }

private:
    template <typename Source>
    void Drain(Source& source) {
        for (SourceItem item; source.Next(&item);) {
            if (item.fate == EventFate::record || item.isKept)
                records.push_back(item.record);
            if (item.fate == EventFate::noRule)
                noRule.push_back(item.channel + " " + item.event);
            if (item.fate == EventFate::refused)
                refused.push_back(std::string(item.problem) + item.detail);
        }
    }
};

}  // namespace zel
