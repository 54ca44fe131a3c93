#include "zeb_app_reply.h"
#include "zeb_client.h"

namespace zeb {

void sendAppEvent(const EventEnvelope& envelope, IPCPacket1* frame) { ZEBClient::instance()->sendEvent(envelope, frame); }

}  // namespace zeb
