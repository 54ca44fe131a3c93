// The AFC file services: "com.apple.afc" serves the media partition,
// "com.apple.afc2" (jailbroken devices) the whole device tree.
#include "../service.h"
#include "afc_partition.h"
#include "afc_session.h"

namespace zsim {
namespace {

void serveAfc(ServiceStream& stream, const ServiceContext& ctx) {
    afc::Session session(stream, ctx, ctx.mediaRoot.string(), mediaPartitionFor(ctx.mediaRoot, ctx.profile));
    session.run();
}

// Without a device tree there is nothing to serve: returning closes the
// pipe at once and the host's first request fails.
void serveAfc2(ServiceStream& stream, const ServiceContext& ctx) {
    if (ctx.systemRoot.empty()) return;
    afc::Session session(stream, ctx, ctx.systemRoot.string());
    session.run();
}

ZSIM_REGISTER_SERVICE("com.apple.afc", serveAfc);
ZSIM_REGISTER_SERVICE("com.apple.afc2", serveAfc2);

}  // namespace
}  // namespace zsim
