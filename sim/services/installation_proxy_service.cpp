// "com.apple.mobile.installation_proxy": XML property lists framed with a
// big-endian length. One command at a time per connection; Browse answers
// in pages, the others with progress and then Complete or an error.
#include "../service.h"
#include "core/app_service_frames.h"
#include "installation_proxy_session.h"

namespace zsim {
namespace {

void serveInstallationProxy(ServiceStream& stream, const ServiceContext& ctx) {
    instproxy::Session session(stream, ctx);
    std::vector<char> scratch;
    while (!deviceClosing(ctx)) {
        Frame request = readFrame(stream, scratch);
        if (!request.plist) return;
        if (!session.run(request.plist.get())) return;
    }
}

ZSIM_REGISTER_SERVICE("com.apple.mobile.installation_proxy", serveInstallationProxy);

}  // namespace
}  // namespace zsim
