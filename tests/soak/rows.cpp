#include "rows.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace ZEL::soak {

namespace {

std::atomic<unsigned> faults{0};
char step[100];

constexpr char letters[] = "ERLS";

extern "C" void OnAlarm(int) {
    constexpr std::string_view hang = "soak: BROKEN: this takes too long: ";
    const bool told = ::write(STDERR_FILENO, hang.data(), hang.size()) > 0 &&
                      ::write(STDERR_FILENO, step, std::strlen(step)) > 0;
    ::_exit(told ? 3 : 4);
}

std::string Format(const char* format, auto... values) {
    char text[200];
    std::snprintf(text, sizeof(text), format, values...);
    return text;
}

std::string IdText(const RowId& id) {
    return Format("{\"id\":\"%c%u.%u.%u\"", letters[id.kind], id.phase, id.producer, id.number);
}

// Of any length up to 600 bytes, and now and then 100000; not to be compressed away.
std::string Padding(const RowId& id) {
    std::uint64_t state =
        ((id.phase * mostProducers + id.producer) * kinds + id.kind) * 0x9E3779B9U;
    state = (state + id.number) * 6364136223846793005U;
    const std::size_t length = id.number % 4999 == 1 ? 100000 : (state >> 40) % 600;
    std::string text = "ä€";
    while (text.size() < length) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        text += static_cast<char>('a' + (state >> 59) % 26);
    }
    return text;
}

}  // namespace

std::string Date(unsigned phase, unsigned day, const char* separator) {
    using namespace std::chrono;
    const year_month_day date{sys_days{year{2026} / 1 / 1} + days(phase * daysOfAPhase + day)};
    return Format("%04d%s%02u%s%02u", int{date.year()}, separator, unsigned{date.month()},
                  separator, unsigned{date.day()});
}

std::string TimeText(unsigned phase, unsigned day, unsigned millisecond) {
    return Date(phase, day, "-") + Format("T%02u:%02u:%02u.%03uZ", millisecond / 3600000,
                                          millisecond / 60000 % 60, millisecond / 1000 % 60,
                                          millisecond % 1000);
}

std::string EventKey(const RowId& id) {
    return "p<begin_time>" + TimeText(id.phase, DayOf(id.number), id.number) +
           Format("<sequence>%010u<object_type>file<action>", id.producer) +
           (IsCreation(id.number) ? "create" : "modify") + "<target_path_name>soak.txt";
}

std::string Value(const RowId& id) {
    if (id.kind == receive)
        return "{\"event_pkey\":\"" + EventKey(id) + "\",\"event_enrichment\":" + IdText(id) + "}}";
    const std::string text = IdText(id) + ",\"pad\":\"" + Padding(id) + "\"";
    if (id.kind != event)
        return text + "}";
    return text +
           R"(,"artifacts":{"target":{"object_type":"file","path":{"value":["soak.txt"]}}},"action":[")" +
           (IsCreation(id.number) ? "create" : "modify") + R"("],"begin_time":{"value":")" +
           TimeText(id.phase, DayOf(id.number), id.number) +
           Format("\"},\"seq_num\":%u}", id.producer);
}

std::string Result(const RowId& id, bool isEnriched) {
    const auto with = [&](Kind kind) { return RowId{kind, id.phase, id.producer, id.number}; };
    if (id.kind != receive && !isEnriched)
        return Value(id);
    std::string text = Value(with(event));
    text.pop_back();
    return text + (id.kind == receive ? ",\"enriched_data\":" + IdText(id) + "}}"
                                      : ",\"enrichments\":[" + Value(with(silent)) + "]}");
}

RowId IdOf(std::string_view text) {
    constexpr std::string_view mark = "{\"id\":\"";
    // In a receive-time row and in what a query makes of it, its own stands last.
    const std::size_t joined = text.rfind("\"enriched_data\":");
    const std::size_t at = text.find(mark, joined == text.npos ? 0 : joined);
    char letter = 0;
    RowId id;
    if (at == text.npos ||
        std::sscanf(std::string(text.substr(at + mark.size(), 40)).c_str(), "%c%u.%u.%u", &letter,
                    &id.phase, &id.producer, &id.number) != 4 ||
        id.producer >= mostProducers || id.number >= mostEvents)
        return {kinds};
    id.kind =
        static_cast<Kind>(std::min<std::size_t>(std::string_view(letters).find(letter), kinds));
    return id;
}

void Broken(const std::string& what) {
    constexpr unsigned mostTold = 30;
    if (faults.fetch_add(1) < mostTold)
        std::fprintf(stderr, "soak: BROKEN: %s\n", what.c_str());
}

unsigned Faults() {
    return faults;
}

void Step(unsigned phase, const char* what) {
    constexpr unsigned patience = 300;  // also of a sanitizer's build on a busy machine
    ::alarm(0);
    std::snprintf(step, sizeof(step), "phase %u: %s\n", phase, what);
    const std::time_t now = std::time(nullptr);
    char time[16];
    std::strftime(time, sizeof(time), "%T", std::localtime(&now));
    std::fprintf(stderr, "soak: %s %s", time, step);
    std::signal(SIGALRM, OnAlarm);
    ::alarm(patience);
}

void StandStill() {
    ::alarm(0);
    ::raise(SIGSTOP);
}

}  // namespace ZEL::soak
