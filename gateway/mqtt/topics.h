// The topics of one terminal.
//
//   ominspect/TERMINAL/status          retained: online, offline, or lost (the last will)
//   ominspect/TERMINAL/items/ITEM      retained: an item with its last result
//   ominspect/TERMINAL/events          everything that the history keeps, in its order
//   ominspect/TERMINAL/run/ROLE        requests, from outside; whoever may publish there has the role
//   ominspect/TERMINAL/collect/ROLE
//   ominspect/TERMINAL/reply/...       their answers
#pragma once

#include <string>
#include <string_view>

namespace ominspect::gateway::mqtt {

// A name as one level of a topic, different for different names: '/', '+', '#', '%', control characters (those that
// turn the writing direction included), stray bytes and what Unicode calls noncharacters become %HH, byte by byte;
// nothing at all becomes "%".
std::string EscapeLevel(std::string_view name);

class Topics {
public:
    explicit Topics(std::string_view terminal) : root_("ominspect/" + EscapeLevel(terminal) + "/") {}

    std::string Status() const { return root_ + "status"; }
    std::string Item(std::string_view item) const { return root_ + "items/" + EscapeLevel(item); }
    std::string Events() const { return root_ + "events"; }
    std::string Run(std::string_view role) const { return root_ + "run/" + EscapeLevel(role); }
    std::string Collect(std::string_view role) const { return root_ + "collect/" + EscapeLevel(role); }

    // Whether answers may go there: below reply/, and no filter. So nobody makes a terminal publish in another's name.
    bool IsReply(std::string_view topic) const;

private:
    std::string root_;
};

}  // namespace ominspect::gateway::mqtt
