#include "host/scan/scanner.h"

#include "host/scan/folder_walk.h"
#include "host/scan/media_kind.h"
#include "host/scan/media_record.h"
#include "host/scan/rule_file.h"
#include "host/scan/small_file.h"

namespace host {

namespace {

constexpr std::size_t RuleFileSizeLimit = 1u << 20;  // bytes
constexpr std::int64_t ProgressInterval = 64;        // files

class Scan {
public:
    Scan(const ScanOptions& options, MediaWorkers& workers, ScanResult& result)
        : _options(options), _workers(workers), _result(result) {}

    platform::OptionalError run() {
        if (auto error = resolveScanFolder(_options.folder, _folder))
            return error;
        if (auto error = readRules())
            return error;
        if (auto error = walk())
            return error;
        if (auto error = readNewFiles())
            return error;
        for (MediaFile& file : _result.files)
            classifyMedia(file, _rules);
        report();
        return std::nullopt;
    }

private:
    platform::OptionalError readRules() {
        std::string text;
        bool missing = false;
        const std::string reason = readSmallFile(_folder + '/' + std::string(RuleFileName),
                                                 RuleFileSizeLimit, text, &missing);
        if (missing)
            return std::nullopt;
        if (!reason.empty())
            return platform::Error(ScanErrorDomain, ScanErrorRuleFile,
                                   std::string(RuleFileName) + ": " + reason + ".");
        return RuleFile::parse(text, _rules);
    }

    platform::OptionalError walk() {
        report();
        FolderListing listing;
        const auto seen = [this](std::int64_t count) {
            _progress.filesSeen = count;
            report();
        };
        if (auto error = walkFolder(_folder, _rules, seen, _options.stop, listing))
            return error;
        _result.playlists = std::move(listing.playlists);
        _result.images = std::move(listing.images);
        _result.skipped = std::move(listing.skipped);
        _result.files.reserve(listing.media.size());
        for (FoundMedia& found : listing.media)
            addFile(std::move(found));
        _progress.walking = false;
        _progress.filesSeen = static_cast<std::int64_t>(_result.files.size());
        _progress.filesToRead = static_cast<std::int64_t>(_toRead.size());
        report();
        return std::nullopt;
    }

    void addFile(FoundMedia found) {
        MediaFile& file = _result.files.emplace_back();
        if (!found.reason.empty()) {
            file.reason = std::move(found.reason);
        } else if (const MediaFile* known = _options.known ? _options.known(found.stamp) : nullptr;
                   known && !known->readAgain && known->stamp.size == found.stamp.size &&
                   known->stamp.modifiedNanoseconds == found.stamp.modifiedNanoseconds) {
            file = *known;
        } else {
            _toRead.push_back(_result.files.size() - 1);
        }
        file.stamp = std::move(found.stamp);
    }

    platform::OptionalError readNewFiles() {
        std::vector<MediaRequest> requests;
        requests.reserve(_toRead.size());
        for (const std::size_t place : _toRead)
            requests.push_back({MediaRequest::Kind::ReadMedia,
                                _folder + '/' + _result.files[place].stamp.path, -1});
        const auto answered = [this](std::size_t request, MediaAnswer answer) {
            takeAnswer(_result.files[_toRead[request]], std::move(answer));
            ++_result.filesRead;
            if (++_progress.filesRead % ProgressInterval == 0)
                report();
        };
        if (auto error = _workers.run(requests, answered, _options.stop))
            return error;
        if (_options.stop.stop_requested())
            return platform::Error(ScanErrorDomain, ScanErrorCancelled, "The scan was stopped.");
        return std::nullopt;
    }

    static void takeAnswer(MediaFile& file, MediaAnswer answer) {
        FileStamp stamp = std::move(file.stamp);
        std::optional<MediaFile> read;
        if (answer.reason.empty())
            read = decodeMediaFile(answer.bytes);
        file = read ? std::move(*read) : MediaFile();
        if (!read)
            file.reason = answer.reason.empty() ? "the file confused the reader" : answer.reason;
        file.readAgain = file.readAgain || !answer.reason.empty();
        file.stamp = std::move(stamp);
    }

    void report() const {
        if (_options.progress)
            _options.progress(_progress);
    }

    const ScanOptions& _options;
    MediaWorkers& _workers;
    ScanResult& _result;
    std::string _folder;  // resolved
    RuleFile _rules;
    ScanProgress _progress;
    std::vector<std::size_t> _toRead;  // places in _result.files
};

}  // namespace

platform::OptionalError scanFolder(const ScanOptions& options, MediaWorkers& workers,
                                   ScanResult& result) {
    result = {};
    return Scan(options, workers, result).run();
}

}  // namespace host
