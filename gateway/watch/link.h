// The gateway's place on the message bus, which may go and come back while others use it.
#pragma once

#include <memory>
#include <mutex>

#include "ominspect/client/session.h"

namespace ominspect::gateway {

// Any thread. Whoever uses the session holds it; the watcher waits for them before it opens another one.
class Link {
public:
    // Null while there is none.
    std::shared_ptr<client::Session> Get() const {
        const std::lock_guard lock(mutex_);
        return session_;
    }

    void Set(std::shared_ptr<client::Session> session) {
        const std::lock_guard lock(mutex_);
        session_.swap(session);
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<client::Session> session_;
};

}  // namespace ominspect::gateway
