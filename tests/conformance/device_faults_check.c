/* Lockdown rules a host relies on (sessions included), and the faults the control channel can
 * cause: what is readable before a session, StartService without one,
 * "stall" (no answer until it is lifted) and "break" (connections closed). */
#include "sim_control_client.h"

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <plist/plist.h>
#include <usbmuxd.h>

#include <arpa/inet.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int fail(const char* what) {
    fprintf(stderr, "FAIL: %s\n", what);
    return 1;
}

static int send_request(idevice_connection_t conn, plist_t dict) {
    char* xml = NULL;
    uint32_t len = 0;
    plist_to_xml(dict, &xml, &len);
    uint32_t be = htonl(len);
    uint32_t sent = 0;
    int ok = idevice_connection_send(conn, (const char*)&be, 4, &sent) == IDEVICE_E_SUCCESS && sent == 4 &&
             idevice_connection_send(conn, xml, len, &sent) == IDEVICE_E_SUCCESS && sent == len;
    free(xml);
    plist_free(dict);
    return ok;
}

static int receive_exact(idevice_connection_t conn, char* buf, uint32_t n, unsigned timeout_ms) {
    uint32_t got = 0;
    while (got < n) {
        uint32_t part = 0;
        if (idevice_connection_receive_timeout(conn, buf + got, n - got, &part, timeout_ms) != IDEVICE_E_SUCCESS ||
            part == 0)
            return 0;
        got += part;
    }
    return 1;
}

/* The next answer, or NULL when none comes within the time limit. */
static plist_t receive_answer(idevice_connection_t conn, unsigned timeout_ms) {
    uint32_t be = 0;
    if (!receive_exact(conn, (char*)&be, 4, timeout_ms)) return NULL;
    uint32_t len = ntohl(be);
    if (len == 0 || len > (1u << 20)) return NULL;
    char* body = malloc(len);
    plist_t answer = NULL;
    if (receive_exact(conn, body, len, timeout_ms)) plist_from_xml(body, len, &answer);
    free(body);
    return answer;
}

static plist_t request(const char* name, const char* key, const char* value) {
    plist_t dict = plist_new_dict();
    plist_dict_set_item(dict, "Request", plist_new_string(name));
    if (key) plist_dict_set_item(dict, key, plist_new_string(value));
    return dict;
}

static int has_string(plist_t dict, const char* key, const char* expected) {
    plist_t node = dict ? plist_dict_get_item(dict, key) : NULL;
    char* s = NULL;
    if (node && plist_get_node_type(node) == PLIST_STRING) plist_get_string_val(node, &s);
    int same = s && strcmp(s, expected) == 0;
    free(s);
    return same;
}

static int check_presession_rules(idevice_t device) {
    idevice_connection_t conn = NULL;
    if (idevice_connect(device, 62078, &conn) != IDEVICE_E_SUCCESS) return fail("connect to lockdown");
    plist_t a;

    send_request(conn, request("GetValue", "Key", "ProductVersion"));
    a = receive_answer(conn, 3000);
    if (!a || !plist_dict_get_item(a, "Value")) return fail("ProductVersion must be readable before a session");
    plist_free(a);

    send_request(conn, request("GetValue", "Key", "InternationalMobileEquipmentIdentity"));
    a = receive_answer(conn, 3000);
    if (!has_string(a, "Error", "GetProhibited")) return fail("private values need a session");
    plist_free(a);

    send_request(conn, request("StartService", "Service", "com.apple.afc"));
    a = receive_answer(conn, 3000);
    if (!has_string(a, "Error", "NoRunningSession")) return fail("StartService without a session");
    plist_free(a);

    send_request(conn, request("StartSession", "HostID", "00000000-0000-0000-0000-000000000000"));
    a = receive_answer(conn, 3000);
    if (!has_string(a, "Error", "InvalidHostID")) return fail("StartSession from an unknown host");
    plist_free(a);
    idevice_disconnect(conn);
    return 0;
}

/* The HostID this host paired with, from the record usbmuxd keeps. */
static char* paired_host_id(const char* udid) {
    char* data = NULL;
    uint32_t len = 0;
    if (usbmuxd_read_pair_record(udid, &data, &len) != 0) return NULL;
    plist_t record = NULL;
    plist_from_memory(data, len, &record);
    free(data);
    plist_t node = record ? plist_dict_get_item(record, "HostID") : NULL;
    char* host_id = NULL;
    if (node) plist_get_string_val(node, &host_id);
    plist_free(record);
    return host_id;
}

/* StopSession ends TLS and the plain conversation goes on; a new session
 * can start on the same connection. */
static int check_session_cycle(idevice_t device, const char* udid) {
    lockdownd_client_t client = NULL;
    if (lockdownd_client_new_with_handshake(device, &client, "device_faults_check") != LOCKDOWN_E_SUCCESS)
        return fail("handshake");
    lockdownd_client_free(client);
    char* host_id = paired_host_id(udid);
    if (!host_id) return fail("no pair record saved through usbmuxd");
    if (lockdownd_client_new(device, &client, "device_faults_check") != LOCKDOWN_E_SUCCESS) return fail("client");
    int rc = 0;
    for (int round = 0; round < 2 && rc == 0; round++) {
        char* session_id = NULL;
        int ssl = 0;
        plist_t value = NULL;
        if (lockdownd_start_session(client, host_id, &session_id, &ssl) != LOCKDOWN_E_SUCCESS || !ssl)
            rc = fail("session with TLS");
        else if (lockdownd_get_value(client, NULL, "InternationalMobileEquipmentIdentity", &value) != LOCKDOWN_E_SUCCESS)
            rc = fail("private value inside the session");
        plist_free(value);
        value = NULL;
        if (rc == 0 && lockdownd_stop_session(client, session_id) != LOCKDOWN_E_SUCCESS) rc = fail("stop session");
        free(session_id);
        if (rc == 0 && lockdownd_query_type(client, NULL) != LOCKDOWN_E_SUCCESS) rc = fail("plain request after StopSession");
        if (rc == 0 && lockdownd_get_value(client, NULL, "InternationalMobileEquipmentIdentity", &value) == LOCKDOWN_E_SUCCESS)
            rc = fail("private value after the session ended");
        plist_free(value);
    }
    lockdownd_client_free(client);
    free(host_id);
    return rc;
}

static int check_stall(idevice_t device, const char* control, const char* udid) {
    char answer[256], command[256];
    idevice_connection_t conn = NULL;
    if (idevice_connect(device, 62078, &conn) != IDEVICE_E_SUCCESS) return fail("connect to lockdown");
    snprintf(command, sizeof(command), "stall %s on", udid);
    if (sim_control(control, command, answer, sizeof(answer)) != 0) return fail(answer);
    send_request(conn, request("QueryType", NULL, NULL));
    plist_t a = receive_answer(conn, 700);
    if (a) return fail("a stalled device answered");
    snprintf(command, sizeof(command), "stall %s off", udid);
    if (sim_control(control, command, answer, sizeof(answer)) != 0) return fail(answer);
    a = receive_answer(conn, 3000);
    if (!has_string(a, "Type", "com.apple.mobile.lockdown")) return fail("no answer once the stall was lifted");
    plist_free(a);
    idevice_disconnect(conn);
    return 0;
}

static int check_break(idevice_t device, const char* control, const char* udid) {
    char answer[256], command[256];
    lockdownd_client_t client = NULL;
    if (lockdownd_client_new_with_handshake(device, &client, "device_faults_check") != LOCKDOWN_E_SUCCESS)
        return fail("handshake");
    plist_t value = NULL;
    if (lockdownd_get_value(client, NULL, "DeviceName", &value) != LOCKDOWN_E_SUCCESS) return fail("get value");
    plist_free(value);
    value = NULL;
    snprintf(command, sizeof(command), "break %s", udid);
    if (sim_control(control, command, answer, sizeof(answer)) != 0) return fail(answer);
    if (lockdownd_get_value(client, NULL, "DeviceName", &value) == LOCKDOWN_E_SUCCESS)
        return fail("the session survived break");
    lockdownd_client_free(client);
    /* Only the open connections go: the device itself stays usable. */
    if (lockdownd_client_new_with_handshake(device, &client, "device_faults_check") != LOCKDOWN_E_SUCCESS)
        return fail("new session after break");
    lockdownd_client_free(client);
    return 0;
}

int main(void) {
    const char* control = getenv("ZSIM_CONTROL");
    const char* udid = getenv("ZSIM_UDID");
    if (!control || !udid) return fail("ZSIM_CONTROL and ZSIM_UDID must be set");
    /* Writing to a connection the device has closed must fail, not kill us. */
    signal(SIGPIPE, SIG_IGN);
    idevice_t device = NULL;
    if (idevice_new_with_options(&device, udid, IDEVICE_LOOKUP_USBMUX) != IDEVICE_E_SUCCESS) return fail("device");
    int rc = check_presession_rules(device) || check_session_cycle(device, udid) || check_stall(device, control, udid) || check_break(device, control, udid);
    idevice_free(device);
    if (rc == 0) printf("lockdown rules, stall and break behave\n");
    return rc;
}
