// "com.apple.mobilebackup2": backups over DeviceLink. The device speaks
// first, offering DeviceLink version 300.0 (what both the upstream and the
// distributions' libimobiledevice 1.3.0 accept) and taking a DLVersionsOk
// answer of two to four elements, then DLMessageDeviceReady. The host's
// requests come as DLMessageProcessMessage dictionaries: Hello (protocol
// 2.0 or 2.1), Backup and Restore (which the device then drives to the end
// of the connection), Info, List and ChangePassword (one response each).
#include "../service.h"
#include "core/app_registry.h"
#include "core/backup_create.h"
#include "core/backup_host.h"
#include "core/backup_inquiry.h"
#include "core/backup_restore.h"
#include "core/backup_settings.h"
#include "core/sync_messages.h"

#include <cmath>

namespace zsim {
namespace {

const double kProtocolVersions[] = {2.0, 2.1};

bool exchangeVersions(BackupHost& host) {
    if (!host.send({plist_new_string("DLMessageVersionExchange"), plist_new_uint(300), plist_new_uint(0)})) return false;
    PlistPtr answer = host.receive();
    if (!answer) return false;
    const uint32_t size = plist_array_get_size(answer.get());
    if (messageString(answer.get(), 0) != "DLMessageVersionExchange" ||
        messageString(answer.get(), 1) != "DLVersionsOk" || size < 2 || size > 4)
        return false;
    return host.send({plist_new_string("DLMessageDeviceReady")});
}

// The highest version both sides speak; 0 when there is none.
double commonVersion(plist_t offered) {
    double best = 0;
    const uint32_t n = offered && plist_get_node_type(offered) == PLIST_ARRAY ? plist_array_get_size(offered) : 0;
    for (uint32_t i = 0; i < n; ++i) {
        plist_t item = plist_array_get_item(offered, i);
        double v = 0;
        if (plist_get_node_type(item) == PLIST_REAL) {
            plist_get_real_val(item, &v);
        } else if (plist_get_node_type(item) == PLIST_UINT) {  // some hosts write 2.0 as 2
            uint64_t whole = 0;
            plist_get_uint_val(item, &whole);
            v = static_cast<double>(whole);
        }
        // 2.0 may come as a 4-byte float, so compare loosely.
        for (double known : kProtocolVersions)
            if (std::fabs(v - known) < 1e-6 && known > best) best = known;
    }
    return best;
}

bool answerHello(BackupHost& host, plist_t hello) {
    const double version = commonVersion(plist_dict_get_item(hello, "SupportedProtocolVersions"));
    plist_t response = plist_new_dict();
    plist_dict_set_item(response, "MessageName", plist_new_string("Response"));
    plist_dict_set_item(response, "ErrorCode", plist_new_uint(version > 0 ? 0 : 1));
    if (version > 0) plist_dict_set_item(response, "ProtocolVersion", plist_new_real(version));
    return host.send({plist_new_string("DLMessageProcessMessage"), response});
}

bool changePassword(BackupHost& host, plist_t request) {
    const ServiceContext& ctx = host.context();
    BackupSettings& settings = backupSettingsFor(ctx.stateDir, ctx.udid, ctx.profile);
    PasswordChangeResult result =
        settings.changePassword(dictString(request, "OldPassword"), dictString(request, "NewPassword"));
    // Hosts watch this to learn that WillEncrypt changed.
    if (result.errorCode == 0) appRegistryFor(ctx).notifications().post("com.apple.mobile.backup.domain_changed");
    return host.respond(result.errorCode, result.description);
}

void serveMobileBackup2(ServiceStream& stream, const ServiceContext& ctx) {
    BackupHost host(stream, ctx);
    if (!exchangeVersions(host)) return;
    while (PlistPtr message = host.receive()) {
        const std::string name = messageString(message.get(), 0);
        if (name == "DLMessageDisconnect") return;
        plist_t body = messageItem(message.get(), 1);
        if (name != "DLMessageProcessMessage" || !body || plist_get_node_type(body) != PLIST_DICT) continue;
        const std::string request = dictString(body, "MessageName").value_or("");
        bool goOn = true;
        if (request == "Hello") {
            goOn = answerHello(host, body);
        } else if (request == "Backup") {
            runBackup(host, body);
            return;
        } else if (request == "Restore") {
            runRestore(host, body);
            return;
        } else if (request == "Info") {
            goOn = answerInfo(host, body);
        } else if (request == "List") {
            goOn = answerList(host, body);
        } else if (request == "ChangePassword") {
            goOn = changePassword(host, body);
        } else {
            goOn = host.respond(1, "Operation not supported: " + request + " (MBErrorDomain/1)");
        }
        if (!goOn) return;
    }
}

ZSIM_REGISTER_SERVICE("com.apple.mobilebackup2", serveMobileBackup2);

}  // namespace
}  // namespace zsim
