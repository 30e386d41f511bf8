#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "records/formats/formats.h"
#include "records/jsonfields.h"

namespace zel {

// What a format makes of lines, in one line each: the record, or why there is none.
class ReadAll {
public:
    explicit ReadAll(std::string_view format, const MappingOptions& options = {})
        : mapper_(options), source_(FindFormat(format)->makeReader(mapper_)) {}

    void Line(std::string_view text) {
        SourceLine line;
        line.text = text;
        line.number = ++number_;
        fields_.Clear();
        if (json_.Read(text, &fields_))
            line.fields = &fields_;
        source_->Give(line);
        Drain();
    }
    void File(const std::string& path) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);)
            Line(line);
        End();
    }
    void End() {
        source_->End();
        Drain();
    }

    std::vector<std::string> items;

private:
    void Drain() {
        while (source_->Next(&item_)) {
            const std::string place = std::to_string(item_.place) + ": ";
            if (item_.fate == EventFate::record)
                items.push_back(place + item_.record);
            else if (item_.fate == EventFate::noRule)
                items.push_back(place + "no rule: " + item_.channel + " " + item_.event +
                                item_.record);
            else
                items.push_back(place + "refused: " + std::string(item_.problem));
        }
    }

    Mapper mapper_;
    std::unique_ptr<LineSource> source_;
    JsonFields json_;
    SourceFields fields_;
    SourceItem item_;
    std::uint64_t number_ = 0;
};

}  // namespace zel
