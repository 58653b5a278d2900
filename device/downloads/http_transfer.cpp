#include "device/downloads/http_transfer.h"

#include <fmt/format.h>

#include <exception>
#include <stdexcept>

#include "device/downloads/media_name.h"

namespace downloads {
namespace {

constexpr long MaximumRedirections = 5;
constexpr long ConnectTimeout = 30;  // seconds
constexpr std::uint64_t NanosecondsPerSecond = 1'000'000'000;
constexpr std::uint64_t LongestRetryAfter = 60 * 60;  // seconds
constexpr long BufferSize = 1 << 18;                  // bytes

bool mayPass(CURLcode code) {
    switch (code) {
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_CONNECT:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
        case CURLE_HTTP3:
        case CURLE_PARTIAL_FILE:
        case CURLE_OPERATION_TIMEDOUT:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
            return true;
        default:
            return false;
    }
}

bool mayPass(int status) {
    return status == 408 || status == 425 || status == 429 || status == 500 || status == 502 ||
           status == 503 || status == 504;
}

}  // namespace

HttpTransfer::HttpTransfer(CURLM* multi, const Address& address, StagedDownload& staged)
    : _multi(multi), _staged(staged), _easy(curl_easy_init()) {
    if (!_easy)
        throw std::runtime_error("no HTTP transfer can be made");
    setUp(address);
    if (_staged.received() > 0)
        askForTheRest();
    curl_multi_add_handle(_multi, _easy.get());
}

HttpTransfer::~HttpTransfer() {
    curl_multi_remove_handle(_multi, _easy.get());
}

void HttpTransfer::setUp(const Address& address) {
    CURL* const easy = _easy.get();
    const char* const protocols = address.scheme == Scheme::Https ? "https" : "http,https";
    curl_easy_setopt(easy, CURLOPT_URL, address.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    // What was asked for under encryption does not come without.
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, protocols);
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, MaximumRedirections);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, ConnectTimeout);
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, BufferSize);
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "orlith");
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, _message);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &HttpTransfer::takeHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &HttpTransfer::takeBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
}

void HttpTransfer::askForTheRest() {
    const std::string field = "If-Range: " + ifRangeOf(_staged.validator());
    _fields.reset(curl_slist_append(nullptr, field.c_str()));
    curl_easy_setopt(_easy.get(), CURLOPT_HTTPHEADER, _fields.get());
    curl_easy_setopt(_easy.get(), CURLOPT_RANGE, fmt::format("{}-", _staged.received()).c_str());
}

std::size_t HttpTransfer::takeHeader(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<HttpTransfer*>(self);
    try {
        if (transfer._response.takeLine({bytes, size * count}))
            return size * count;
        transfer._isHeaderTooLarge = true;
    } catch (const std::exception& exception) {
        transfer.end(Outcome::Kind::Passing, exception.what());
    }
    return 0;
}

// No exception may pass through the library that calls.
std::size_t HttpTransfer::takeBody(char* bytes, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<HttpTransfer*>(self);
    try {
        transfer.begin();
        transfer.take({bytes, size * count});
    } catch (const std::exception& exception) {
        transfer.end(Outcome::Kind::Passing, exception.what());
    }
    // Another count than was given ends the transfer.
    return transfer._outcome ? 0 : size * count;
}

void HttpTransfer::begin() {
    if (_hasBegun || _outcome)
        return;
    _hasBegun = true;
    const int status = _response.status();
    if (status == 200 || status == 206) {
        if (_response.isEncoded())
            end(Outcome::Kind::Refused, "The server sends the file in a compressed form only.");
        else
            status == 200 ? beginWhole() : beginRest();
        return;
    }
    if (status == 416 && _staged.received() > 0)
        return end(Outcome::Kind::Changed, "The server has less of the file than came before.");
    end(mayPass(status) ? Outcome::Kind::Passing : Outcome::Kind::Refused,
        fmt::format("The server answered with status {}.", status));
    _outcome->isGone = status == 404 || status == 410;
    if (const auto seconds = _response.retryAfter())
        _outcome->retryAfter = std::min(*seconds, LongestRetryAfter) * NanosecondsPerSecond;
}

void HttpTransfer::beginWhole() {
    if (!_response.tellsItsEnd())
        return end(Outcome::Kind::Refused,
                   "The server does not say where the file ends, so a part could pass for it.");
    char* url = nullptr;
    curl_easy_getinfo(_easy.get(), CURLINFO_EFFECTIVE_URL, &url);
    if (const auto error =
            _staged.beginOver({_response.validator(), _response.contentLength(),
                               mediaFileName(_response.contentDisposition(),
                                             pathOfUrl(url ? url : ""), _response.contentType())}))
        end(Outcome::Kind::Refused, error->text());
}

void HttpTransfer::beginRest() {
    const auto& range = _response.contentRange();
    // A server that knows nothing of If-Range may send the rest of another version.
    const bool isSame = _response.validator() == _staged.validator() && range &&
                        range->first == _staged.received() &&
                        (!range->total || !_staged.total() || *range->total == *_staged.total());
    if (_staged.received() == 0 || !isSame)
        return end(Outcome::Kind::Changed, "The server has another version of the file now.");
    if (const auto error = _staged.goOn(range->total))
        end(Outcome::Kind::Refused, error->text());
}

void HttpTransfer::take(std::string_view bytes) {
    if (_outcome)
        return;
    if (const auto error = _staged.write(bytes))
        end(Outcome::Kind::Refused, error->text());
}

void HttpTransfer::over(CURLcode code) {
    if (_outcome)
        return;
    if (code != CURLE_OK) {
        _outcome = failure(code);
        return;
    }
    begin();
    if (_outcome)
        return;
    if (_staged.received() == 0)
        end(Outcome::Kind::Refused, "The file is empty.");
    else if (_staged.isWhole())
        end(Outcome::Kind::Complete, "");
    else
        end(Outcome::Kind::Passing, "The server sent less than the whole file.");
}

Outcome HttpTransfer::failure(CURLcode code) const {
    if (_isHeaderTooLarge)
        return {Outcome::Kind::Refused, "The server's answer has a header that is too large."};
    if (code == CURLE_TOO_MANY_REDIRECTS)
        return {Outcome::Kind::Refused,
                fmt::format("The address leads on more than {} times.", MaximumRedirections)};
    const std::string text = _message[0] != '\0' ? _message : curl_easy_strerror(code);
    return {mayPass(code) ? Outcome::Kind::Passing : Outcome::Kind::Refused,
            fmt::format("The transfer broke off: {}.", text)};
}

}  // namespace downloads
