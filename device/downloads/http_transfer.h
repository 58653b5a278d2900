// A download by HTTP: one request, which goes on where the staged bytes end when the source still
// has the version that they are of.
//
// The thread of the CURLM that it is given. Transfers are told apart by their easy handle: whoever
// reads the CURLM's messages looks the transfer up by it.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "device/downloads/address.h"
#include "device/downloads/response.h"
#include "device/downloads/staged_download.h"
#include "device/downloads/transfer.h"

namespace downloads {

class HttpTransfer final : public Transfer {
public:
    // `multi` and `staged` outlive the transfer.
    HttpTransfer(CURLM* multi, const Address& address, StagedDownload& staged);
    HttpTransfer(const HttpTransfer&) = delete;
    HttpTransfer& operator=(const HttpTransfer&) = delete;
    ~HttpTransfer() override;

    const std::optional<Outcome>& outcome() const override { return _outcome; }
    bool step() override { return false; }

    const CURL* handle() const { return _easy.get(); }
    // The CURLM's message that this transfer is over.
    void over(CURLcode code);

private:
    struct EasyCleanup {
        void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
    };
    struct ListFree {
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    static std::size_t takeHeader(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t takeBody(char* bytes, std::size_t size, std::size_t count, void* self);

    void setUp(const Address& address);
    void askForTheRest();
    // Once, when the header of the answer that counts is there.
    void begin();
    void beginWhole();
    void beginRest();
    void take(std::string_view bytes);
    void end(Outcome::Kind kind, std::string reason) { _outcome = {kind, std::move(reason)}; }
    Outcome failure(CURLcode code) const;

    CURLM* const _multi;
    StagedDownload& _staged;
    std::unique_ptr<CURL, EasyCleanup> _easy;
    std::unique_ptr<curl_slist, ListFree> _fields;
    Response _response;
    bool _hasBegun = false;
    bool _isHeaderTooLarge = false;
    std::optional<Outcome> _outcome;
    char _message[CURL_ERROR_SIZE] = {};
};

}  // namespace downloads
