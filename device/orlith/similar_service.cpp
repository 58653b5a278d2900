#include "device/orlith/similar_service.h"

#include "device/korvane/library.h"
#include "device/korvane/owner_edits.h"
#include "device/korvane/similar_tracks.h"
#include "device/orlith/call_boundary.h"
#include "device/orlith/names.h"
#include "device/orlith/session_error.h"

namespace orlith {

grpc::Status SimilarService::Find(grpc::ServerContext*, const link::SimilarRequest* request,
                                  link::SimilarReply* reply) {
    return guardedCall(_calls, _log, "Find", [&] {
        platform::OptionalError error;
        korvane::SimilarAnswer answer;
        if (const auto track = korvane::findTrack(_library, request->track(), error)) {
            reply->set_title(cleanUTF8(track->title));
            error = korvane::findSimilarTracks(
                _library, track->persistentID,
                request->has_count() ? std::optional(request->count()) : std::nullopt, answer);
        }
        fillOutcome(error, *reply);
        reply->set_available(static_cast<std::uint32_t>(answer.available));
        reply->set_minimum(static_cast<std::uint32_t>(answer.minimum));
        for (const korvane::SimilarTrack& track : answer.tracks) {
            link::SimilarTrack& row = *reply->add_tracks();
            row.set_persistent_id(track.persistentID);
            row.set_title(cleanUTF8(track.title));
            row.set_artist(cleanUTF8(track.artist));
            row.set_album(cleanUTF8(track.album));
            row.set_likeness(track.likeness);
        }
    });
}

}  // namespace orlith
