#include "samplerecords.h"

#include <cstdio>
#include <cstdlib>

#include "records/input/inputfiles.h"
#include "records/input/linereader.h"

namespace bench {

const std::vector<std::string>& SampleRecords() {
    static const std::vector<std::string> records = [] {
        std::vector<std::string> read;
        std::string error;
        const auto take = [&](const std::string&, zel::PeekStream& bytes) {
            zel::LineReader reader(bytes);
            for (std::string line; reader.Next(&line) == zel::LineReader::Status::line;)
                read.push_back(line);
            return true;
        };
        zel::InputFiles files([](int) { return true; });
        if (files.Read(ZEL_SAMPLE, take, &error) != zel::InputEnd::all || read.empty()) {
            std::fprintf(stderr, "%s: %s\n", ZEL_SAMPLE, error.c_str());
            std::exit(1);
        }
        return read;
    }();
    return records;
}

}  // namespace bench
