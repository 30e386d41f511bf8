#pragma once

#include "zel/query/documentcheck.h"
#include "zel/query/documentkeys.h"

namespace zel {

// Checks the values at the leaves of a document: pairs, operators, times, numbers and names. For
// one document; the findings are the caller's. Findings come in the order of the document, several
// of one value among them; a value that is wrong does not keep the others from being looked at. For
// one thread.
class ValueCheck {
public:
    explicit ValueCheck(DocumentFindings& found) : found_(found) {}

    // A value of any shape but artifacts. `counts`: whether it is a condition, which must have
    // values. Where it is no condition, such as in a result, its type alone is checked.
    void Value(const web::json::value& value, const DocumentKey& key, const std::string& path,
               bool counts);
    // Calls `visit(key, value, path)` for each member that is known; tells the others. Sees what
    // stands twice, of which the store would take one without a word; `visit` then gets only the
    // first.
    template <typename Visit>
    void Members(const web::json::value& object, DocumentKeys keys, const std::string& path,
                 Visit&& visit);
    // Each tells the path when the value is of another type. False then, and the caller passes the
    // value over.
    bool IsObject(const web::json::value& value, const std::string& path);
    bool IsArray(const web::json::value& value, const std::string& path);
    bool IsString(const web::json::value& value, const std::string& path);

    // `path` is the place, such as event_query.events[0].action[1]; empty for the whole document.
    // What stands in the document may be a stranger's text: places are escaped here, `what` by who
    // makes it.
    void Error(const std::string& path, const std::string& what);
    void Warn(const std::string& path, const std::string& what);
    bool HasErrors() const { return !found_.errors.empty(); }

private:
    // What the operator of a pair says; without one, what the store assumes.
    struct Comparison {
        std::string name = "equals";
        bool caseSensitive = false;
    };

    const DocumentKey* Known(const std::string& name, DocumentKeys keys, const std::string& at);
    bool Expect(bool isRight, const char* wanted, const web::json::value& value,
                const std::string& path);
    void Number(const web::json::value& value, bool isSigned, const std::string& path);
    Comparison Operator(const web::json::value& pair, const std::string& path);
    // The value of a pair, when it is of the right type; null otherwise, which has been told.
    const web::json::value* Pair(const web::json::value& pair, const std::string& path,
                                 bool isArray, bool counts, Comparison* comparison);
    void StringPair(const web::json::value& pair, const DocumentKey& key, const std::string& path,
                    bool counts);
    void Patterns(const std::vector<std::string>& values, const DocumentKey& key,
                  const Comparison& comparison, const std::string& path);
    // Compiles it for what it will be on this machine, too.
    bool Pattern(const std::string& pattern, const DocumentKey& key, bool caseSensitive,
                 const std::string& path);
    void NumberPair(const web::json::value& pair, const std::string& path, bool counts);
    void DatePair(const web::json::value& pair, std::string_view name, const std::string& path);
    void ExistPair(const web::json::value& pair, const std::string& path);
    // A list of which each has to be one of `known`.
    void Names(const web::json::value& list, const char* what,
               const std::vector<std::string_view>& known, const std::string& path);

    DocumentFindings& found_;
};

template <typename Visit>
void ValueCheck::Members(const web::json::value& object, DocumentKeys keys, const std::string& path,
                         Visit&& visit) {
    if (!IsObject(object, path))
        return;
    const std::string* former = nullptr;  // members are sorted by name
    for (const auto& [name, value] : object.as_object()) {
        std::string at = path;
        at.append(path.empty() ? "" : ".").append(name);
        const DocumentKey* const key = Known(name, keys, at);
        if (former != nullptr && *former == name)
            Error(at, "stands twice");
        else if (key != nullptr)
            visit(*key, value, at);
        former = &name;
    }
}

}  // namespace zel
