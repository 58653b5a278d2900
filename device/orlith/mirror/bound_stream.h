// A byte stream that belongs to one operation of a session, and how what a callback on the
// stream's thread throws reaches that operation: the plug-in's own callback will not come then, so
// nobody may wait for it.
#pragma once

#include "platform/errors.h"

namespace orlith {

class BoundStream {
public:
    virtual ~BoundStream() = default;
    // Any thread; must not throw.
    virtual void callbackThrew(const platform::Error& error) = 0;
};

}  // namespace orlith
