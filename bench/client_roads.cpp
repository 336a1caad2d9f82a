// The library is linked as it is; each outcome is looked at.
#include "client_roads.h"

#include "bench.h"
#include "ominspect/client/types.h"
#include "support/records.h"
#include "wire.h"

namespace bench {

std::vector<Road> ClientRoads() {
    namespace wire = ominspect::client::wire;
    std::vector<Road> roads(2);
    roads[0].name = "encode a request";
    roads[0].pass = [request = ominspect::client::Request{"item_000017", "run"}](std::size_t /*i*/) {
        Check(static_cast<bool>(wire::EncodeRequest(request)), "encoding a request");
    };
    roads[1].name = "decode a reply";
    roads[1].pass = [reply =
                         support::BytesOf(support::Result("item_000017", "success", "all well"))](std::size_t /*i*/) {
        Check(static_cast<bool>(wire::DecodeRunReply(reply, "item_000017")), "decoding a reply");
    };
    return roads;
}

}  // namespace bench
