#include "fleet/fleetclient.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <exception>
#include <mutex>
#include <new>
#include <stdexcept>

// Requests go through the library's interface for many, though there is one at a time: only that
// one lets the wait for a silent server end when whoever waits has to end.
//
// A fault may come behind the first lines of an answer, when its status has long been sent. Older
// servers then write their message as a last line and end in order, newer ones break the transfer.
// So a line that is no object, and an end that is no end, are both failures.

namespace zel::fleet {

namespace {

constexpr int pollMs = 50;
constexpr long connectSeconds = 10;
constexpr long answerSeconds = 300;           // of what is no question
constexpr std::size_t mostWords = 1U << 16;   // bytes of a refusal that are kept
constexpr std::size_t mostAnswer = 1U << 26;  // bytes of a short answer

void StartLibraryOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct HeaderList {
    ~HeaderList() { curl_slist_free_all(list); }
    void Add(const std::string& line) {
        if (curl_slist* const longer = curl_slist_append(list, line.c_str()))
            list = longer;
        else
            throw std::bad_alloc();
    }
    curl_slist* list = nullptr;
};

// A part of a URL.
std::string Encoded(std::string_view text) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
                             (c >= 'a' && c <= 'z') || c == '_' || c == '-' || c == '.';
        if (isPlain)
            encoded += c;
        else
            encoded.append(1, '%').append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
    }
    return encoded;
}

// What can't get better by itself.
bool NeedsPerson(CURLcode code) {
    return code == CURLE_UNSUPPORTED_PROTOCOL || code == CURLE_URL_MALFORMAT ||
           code == CURLE_PEER_FAILED_VERIFICATION || code == CURLE_SSL_CACERT_BADFILE;
}

}  // namespace

// One request and its answer as it comes.
struct FleetClient::Connection {
    explicit Connection(FleetAddress where, IsOver over)
        : address(std::move(where)), isOver(std::move(over)) {
        StartLibraryOnce();
        multi = curl_multi_init();
        if (multi == nullptr)
            throw std::bad_alloc();
    }
    ~Connection() { curl_multi_cleanup(multi); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    struct Request {
        std::string parameters;  // of the URL, with & ahead of each
        std::string_view body;
        bool isGzip = false;
        bool hasNoEnd = false;  // may take as long as it likes
        // Takes bytes of an answer that is no refusal; false: enough.
        std::function<bool(std::string_view bytes)> onBytes;
    };
    bool Send(const Request& request, FleetFailure* failure);

    FleetAddress address;
    IsOver isOver;
    std::string version;
    int major = 0;              // of it
    bool takesSettings = true;  // until the server says that this user may set none

private:
    struct Answer {
        const Request& request;
        CURL* easy;
        int code = 0;
        std::string words;
        bool hasEnough = false;
        std::exception_ptr thrown;
    };
    static std::size_t TakeHeader(char* bytes, std::size_t size, std::size_t count, void* answer);
    static std::size_t TakeBody(char* bytes, std::size_t size, std::size_t count, void* answer);
    static int StatusOf(CURL* easy) {
        long status = 0;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        return static_cast<int>(status);
    }
    void Prepare(const Request& request, const HeaderList& headers, Answer* answer);
    bool Perform(CURL* easy, CURLcode* result);
    bool Tell(const Answer& answer, CURLcode result, FleetFailure* failure) const;

    CURLM* multi = nullptr;
};

std::size_t FleetClient::Connection::TakeHeader(char* bytes, std::size_t size, std::size_t count,
                                                void* answer) {
    constexpr std::string_view name = "X-ClickHouse-Exception-Code:";
    const std::string_view line(bytes, size * count);
    if (line.size() > name.size() && curl_strnequal(bytes, name.data(), name.size()) != 0) {
        std::string_view value = line.substr(name.size());
        value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
        std::from_chars(value.data(), value.data() + value.size(),
                        static_cast<Answer*>(answer)->code);
    }
    return line.size();
}

// Nothing may be thrown through the library.
std::size_t FleetClient::Connection::TakeBody(char* bytes, std::size_t size, std::size_t count,
                                              void* to) {
    Answer& answer = *static_cast<Answer*>(to);
    const std::string_view piece(bytes, size * count);
    try {
        if (answer.code != 0 || StatusOf(answer.easy) != 200)
            answer.words.append(
                piece.substr(0, mostWords - std::min(mostWords, answer.words.size())));
        else
            answer.hasEnough = !answer.request.onBytes(piece);
    } catch (...) {
        answer.thrown = std::current_exception();
    }
    return answer.hasEnough || answer.thrown ? 0 : piece.size();
}

void FleetClient::Connection::Prepare(const Request& request, const HeaderList& headers,
                                      Answer* answer) {
    CURL* const easy = answer->easy;
    std::string url = address.url + "/?";
    if (!address.database.empty())
        url += "database=" + Encoded(address.database) + "&";
    url += request.parameters;
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_POST, 1L);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.data());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.list);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, connectSeconds);
    curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
    curl_easy_setopt(easy, CURLOPT_UPLOAD_BUFFERSIZE, 1L << 20);
    if (!request.hasNoEnd)
        curl_easy_setopt(easy, CURLOPT_TIMEOUT, answerSeconds);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &Connection::TakeHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, answer);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Connection::TakeBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, answer);
}

// False when whoever asked wants no more.
bool FleetClient::Connection::Perform(CURL* easy, CURLcode* result) {
    *result = CURLE_FAILED_INIT;
    if (curl_multi_add_handle(multi, easy) != CURLM_OK)
        return true;
    bool isWanted = true;
    for (int running = 1; running != 0 && isWanted;) {
        if (curl_multi_perform(multi, &running) != CURLM_OK)
            break;
        if (running != 0)
            curl_multi_poll(multi, nullptr, 0, pollMs, nullptr);
        isWanted = running == 0 || !isOver || !isOver();
    }
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi, &left))
        if (message->msg == CURLMSG_DONE)
            *result = message->data.result;
    curl_multi_remove_handle(multi, easy);
    return isWanted;
}

bool FleetClient::Connection::Tell(const Answer& answer, CURLcode result,
                                   FleetFailure* failure) const {
    const int status = StatusOf(answer.easy);
    if (result == CURLE_OK && status == 200 && answer.code == 0)
        return true;
    failure->status = result == CURLE_OK ? status : 0;
    failure->code = answer.code != 0 ? answer.code : CodeIn(answer.words);
    failure->remedy = NeedsPerson(result) && failure->code == 0
                          ? FleetRemedy::stop
                          : RemedyFor(failure->code, failure->status);
    const std::string words = ShownMessage(answer.words);
    failure->text = address.url + ": ";
    if (result != CURLE_OK && words.empty())
        failure->text += curl_easy_strerror(result);
    else
        failure->text += words.empty() ? "HTTP status " + std::to_string(status) : words;
    return false;
}

bool FleetClient::Connection::Send(const Request& request, FleetFailure* failure) {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy(curl_easy_init(),
                                                                   curl_easy_cleanup);
    if (!easy)
        throw std::bad_alloc();
    *failure = {};
    HeaderList headers;
    headers.Add("Expect:");  // else each large request waits for leave
    headers.Add("Content-Type: text/plain; charset=utf-8");
    if (request.isGzip)
        headers.Add("Content-Encoding: gzip");
    if (!address.user.empty())
        headers.Add("X-ClickHouse-User: " + address.user);
    if (!address.password.empty())
        headers.Add("X-ClickHouse-Key: " + address.password);
    Answer answer{request, easy.get(), 0, {}, false, nullptr};
    Prepare(request, headers, &answer);
    CURLcode result = CURLE_OK;
    const bool isWanted = Perform(easy.get(), &result);
    if (answer.thrown)
        std::rethrow_exception(answer.thrown);
    if (answer.hasEnough)
        return true;
    if (isWanted)
        return Tell(answer, result, failure);
    failure->remedy = FleetRemedy::over;
    failure->text = address.url + ": nobody waits any more";
    return false;
}

namespace {

// Cuts what comes into lines, and tells those of an answer from the server's words.
class AnswerLines {
public:
    explicit AnswerLines(const std::function<bool(std::string_view)>& onLine) : onLine_(onLine) {}

    bool Take(std::string_view bytes) {
        for (std::size_t end; (end = bytes.find('\n')) != bytes.npos;
             bytes.remove_prefix(end + 1)) {
            const std::string_view piece = bytes.substr(0, end);
            const bool goesOn = rest_.empty() ? TakeLine(piece) : TakeLine(rest_.append(piece));
            rest_.clear();
            if (!goesOn)
                return false;
        }
        rest_.append(bytes);
        return true;
    }
    // What is no line of the answer; empty: it was whole.
    std::string Words() const { return words_.empty() ? rest_ : words_; }

private:
    bool TakeLine(std::string_view line) {
        if (words_.empty() && line.starts_with('{'))
            return onLine_(line);
        constexpr std::size_t most = 4096;
        if (words_.size() < most)
            words_.append(line).append(" ");
        return true;
    }

    const std::function<bool(std::string_view)>& onLine_;
    std::string rest_, words_;
};

std::string Settings(const FleetSettings& settings) {
    std::string parameters;
    for (const auto& [name, value] : settings)
        parameters.append(name).append("=").append(Encoded(value)).append("&");
    return parameters;
}

constexpr int readOnlyUser = 164;

// Settings that a server doesn't know are refused, so they go by its version.
constexpr int cancellingSince = 19;
constexpr int asynchronousSince = 22;

// What a server takes of a statement unless it is told otherwise is too little for a list of many
// thousand values.
constexpr std::size_t largeStatement = 100'000;

}  // namespace

FleetClient::FleetClient(FleetAddress address, IsOver isOver)
    : connection_(std::make_unique<Connection>(std::move(address), std::move(isOver))) {}

FleetClient::~FleetClient() = default;

const FleetAddress& FleetClient::Address() const noexcept {
    return connection_->address;
}

bool FleetClient::Run(std::string_view statement, std::string* answer, FleetFailure* failure) {
    answer->clear();
    Connection::Request request;
    request.parameters = "wait_end_of_query=1";
    request.body = statement;
    request.onBytes = [answer](std::string_view bytes) {
        if (answer->size() + bytes.size() > mostAnswer)
            throw std::length_error("the fleet's server gives more than was asked for");
        answer->append(bytes);
        return true;
    };
    return connection_->Send(request, failure);
}

bool FleetClient::Select(std::string_view statement,
                         const std::function<bool(std::string_view line)>& onLine,
                         FleetFailure* failure, unsigned seconds) {
    const std::string most = std::to_string(seconds);
    const int major = MajorVersion(failure);
    if (major == 0)
        return false;
    FleetSettings settings = {{"output_format_json_quote_64bit_integers", "0"}};
    if (major >= cancellingSince)
        settings.emplace_back("cancel_http_readonly_queries_on_client_close", "1");
    if (seconds != 0)
        settings.emplace_back("max_execution_time", most);
    const std::string size = std::to_string(statement.size() + 1);
    if (statement.size() > largeStatement)
        for (const char* const name :
             {"max_query_size", "max_ast_elements", "max_expanded_ast_elements"})
            settings.emplace_back(name, size);
    for (;;) {
        AnswerLines lines(onLine);
        Connection::Request request;
        request.parameters = connection_->takesSettings ? Settings(settings) : "";
        request.body = statement;
        request.hasNoEnd = true;
        request.onBytes = [&lines](std::string_view bytes) { return lines.Take(bytes); };
        const bool isDone = connection_->Send(request, failure);
        if (!isDone && failure->code == readOnlyUser && connection_->takesSettings) {
            connection_->takesSettings = false;
            continue;
        }
        const std::string words = lines.Words();
        if (!isDone || words.empty())
            return isDone;
        failure->code = CodeIn(words);
        failure->status = 200;
        failure->remedy = RemedyFor(failure->code, 0);
        failure->text = connection_->address.url + ": the answer broke off: " + ShownMessage(words);
        return false;
    }
}

// That rows wait for others, and that columns are passed over in silence, are what newer servers do
// by themselves.
bool FleetClient::Insert(std::string_view table, std::string_view rows, bool isGzip,
                         FleetFailure* failure) {
    const int major = MajorVersion(failure);
    if (major == 0)
        return false;
    FleetSettings settings = {{"input_format_skip_unknown_fields", "0"},
                              {"insert_distributed_sync", "1"}};
    if (major >= asynchronousSince)
        settings.emplace_back("async_insert", "0");
    std::string words;
    Connection::Request request;
    request.parameters = Settings(settings) + "query=" +
                         Encoded("INSERT INTO " + std::string(table) + " FORMAT JSONEachRow");
    request.body = rows;
    request.isGzip = isGzip;
    request.onBytes = [&words](std::string_view bytes) {
        words.append(bytes.substr(0, mostWords - std::min(mostWords, words.size())));
        return true;
    };
    if (!connection_->Send(request, failure))
        return false;
    if (CodeIn(words) == 0)
        return true;
    failure->code = CodeIn(words);
    failure->status = 200;
    failure->remedy = RemedyFor(failure->code, 0);
    failure->text = connection_->address.url + ": " + ShownMessage(words);
    return false;
}

int FleetClient::MajorVersion(FleetFailure* failure) {
    return Version(failure).empty() ? 0 : connection_->major;
}

std::string FleetClient::Version(FleetFailure* failure) {
    std::string& version = connection_->version;
    std::string answer;
    if (version.empty() && Run("SELECT version()", &answer, failure)) {
        version = answer.substr(0, answer.find_first_of("\r\n"));
        std::from_chars(version.data(), version.data() + version.size(), connection_->major);
        if (connection_->major == 0) {
            version.clear();
            failure->remedy = FleetRemedy::stop;
            failure->text = connection_->address.url + ": does not answer as such a server does";
        }
    }
    return version;
}

}  // namespace zel::fleet
