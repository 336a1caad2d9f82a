// What the bus and the server say, before it is judged.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "ominspect/client/error.h"
#include "ominspect/client/types.h"

namespace ominspect::doctor {

// The process that is the server.
struct ServerFacts {
    pid_t process = 0;
    std::string user;
    std::optional<std::string> version;  // none: it shows none, or did not answer
    std::optional<bool> isGuarded;       // the bus's policy keeps others from what it does not allow; none: not known
};

struct BusFacts {
    std::string address;
    bool isSystemBus = false;
    std::optional<client::Error> joinFailure = {};
    std::optional<ServerFacts> server = {};       // none: it is not on the bus
    std::optional<client::Error> listError = {};  // the server did not tell its items
    client::Inventory inventory = {};             // with the server's items, when it told them
};

// Asks. It takes some seconds when somebody does not answer. `configured`: the items of the configuration file, whose
// owners are looked for when the server does not tell its own.
BusFacts LookAtBus(client::Catalogue configured);

}  // namespace ominspect::doctor
