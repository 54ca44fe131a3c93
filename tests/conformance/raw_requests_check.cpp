// Request forms the stock tools never send but other hosts do, sent raw and
// their answers checked: the binary usbmuxd protocol (Listen, Connect and
// the notifications), usbmuxd and lockdown requests without their optional
// keys or with unknown ones, and AFC paths without their terminating NUL or
// carried as payload. Expects the device to be paired already.
// Usage: raw_requests_check MUX_SOCKET CONTROL_SOCKET UDID
#include "raw_socket.h"

extern "C" {
#include "sim_control_client.h"
}

#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <plist/plist.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char* gMux = nullptr;
const char* gControl = nullptr;
std::string gUdid;

int connectMux() { return connectMuxSocket(gMux, 10); }

// A byte pipe, plain or inside the lockdown session's TLS.
struct Pipe {
    int fd = -1;
    SSL* ssl = nullptr;
    void write(const std::string& b) {
        bool ok = ssl ? SSL_write(ssl, b.data(), static_cast<int>(b.size())) == static_cast<int>(b.size())
                      : send(fd, b.data(), b.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(b.size());
        if (!ok) fail("send");
    }
    std::string read(size_t n) {
        std::string out(n, '\0');
        for (size_t got = 0; got < n;) {
            ssize_t r = ssl ? SSL_read(ssl, &out[got], static_cast<int>(n - got)) : recv(fd, &out[got], n - got, 0);
            if (r <= 0) fail("connection ended early");
            got += static_cast<size_t>(r);
        }
        return out;
    }
};

std::string le32(uint32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); }
std::string le64(uint64_t v) { return std::string(reinterpret_cast<const char*>(&v), 8); }
uint32_t at32(const std::string& s, size_t at) { uint32_t v; memcpy(&v, s.data() + at, 4); return v; }
uint64_t at64(const std::string& s, size_t at) { uint64_t v; memcpy(&v, s.data() + at, 8); return v; }

// ---- usbmuxd ----

struct MuxPacket {
    uint32_t version, message, tag;
    std::string body;
};

std::string muxPacket(uint32_t version, uint32_t message, uint32_t tag, const std::string& body) {
    return le32(16 + body.size()) + le32(version) + le32(message) + le32(tag) + body;
}

MuxPacket readMux(Pipe& p) {
    std::string h = p.read(16);
    return {at32(h, 4), at32(h, 8), at32(h, 12), p.read(at32(h, 0) - 16)};
}

// Every answer parsed; freed together once the checks are done.
std::vector<plist_t> gAnswers;

plist_t parse(const std::string& bytes) {
    plist_t out = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &out);
    if (!out) fail("not a property list: " + bytes);
    gAnswers.push_back(out);
    return out;
}

std::string str(plist_t dict, const char* key) {
    plist_t n = dict ? plist_dict_get_item(dict, key) : nullptr;
    const char* s = n ? plist_get_string_ptr(n, nullptr) : nullptr;
    return s ? s : "";
}

uint64_t num(plist_t dict, const char* key) {
    plist_t n = dict ? plist_dict_get_item(dict, key) : nullptr;
    uint64_t v = UINT64_MAX;
    if (n && plist_get_node_type(n) == PLIST_UINT) plist_get_uint_val(n, &v);
    return v;
}

std::string data(plist_t dict, const char* key) {
    plist_t n = dict ? plist_dict_get_item(dict, key) : nullptr;
    uint64_t len = 0;
    const char* d = n ? plist_get_data_ptr(n, &len) : nullptr;
    return d ? std::string(d, len) : "";
}

// A property-list request with MessageType only, none of the client's
// ClientVersionString, ProgName or BundleID.
plist_t muxCall(const char* type, plist_t extra = nullptr) {
    Pipe p{connectMux()};
    plist_t req = extra ? extra : plist_new_dict();
    plist_dict_set_item(req, "MessageType", plist_new_string(type));
    char* xml = nullptr;
    uint32_t len = 0;
    plist_to_xml(req, &xml, &len);
    p.write(muxPacket(1, 8, 21, std::string(xml, len)));
    free(xml);
    plist_free(req);
    MuxPacket a = readMux(p);
    close(p.fd);
    if (a.version != 1 || a.message != 8 || a.tag != 21) fail(std::string(type) + ": not a property-list answer");
    return parse(a.body);
}

// The binary Connect: the port goes on the wire big-endian. Returns the
// pipe when the answer is a binary Result 0, else fails unless `expect`.
Pipe binaryConnect(uint32_t deviceId, uint16_t port, uint32_t expect = 0) {
    Pipe p{connectMux()};
    std::string body = le32(deviceId) + std::string{char(port >> 8), char(port & 0xff)} + std::string(2, '\0');
    p.write(muxPacket(0, 2, 33, body));
    MuxPacket a = readMux(p);
    if (a.version != 0 || a.message != 1 || a.tag != 33 || a.body.size() != 4)
        fail("binary Connect: not a binary Result");
    if (at32(a.body, 0) != expect) fail("binary Connect to port " + std::to_string(port) + " answered " +
                                        std::to_string(at32(a.body, 0)));
    return p;
}

uint32_t checkDeviceAdd(const MuxPacket& a, const std::string& udid) {
    if (a.version != 0 || a.message != 4 || a.tag != 0 || a.body.size() != 268) fail("not a binary DEVICE_ADD");
    if (std::string(a.body.c_str() + 6) != udid) fail("DEVICE_ADD serial " + std::string(a.body.c_str() + 6));
    if ((uint8_t(a.body[4]) | uint8_t(a.body[5]) << 8) != 0x12a8) fail("DEVICE_ADD product id");
    if (at32(a.body, 264) == 0) fail("DEVICE_ADD without a location");
    return at32(a.body, 0);
}

// Listen in the binary protocol: Result 0, the present devices, then
// arrivals and departures, all binary.
void binaryListen() {
    Pipe p{connectMux()};
    p.write(muxPacket(0, 3, 7, ""));
    MuxPacket r = readMux(p);
    if (r.version != 0 || r.message != 1 || r.tag != 7 || r.body != le32(0)) fail("binary Listen: no binary Result 0");
    checkDeviceAdd(readMux(p), gUdid);
    char answer[256];
    if (sim_control(gControl, "attach builtin", answer, sizeof answer) != 0) fail("attach");
    std::string second = answer + 3;
    uint32_t id = checkDeviceAdd(readMux(p), second);
    if (sim_control(gControl, ("detach " + second).c_str(), answer, sizeof answer) != 0) fail("detach");
    MuxPacket gone = readMux(p);
    if (gone.version != 0 || gone.message != 5 || gone.body != le32(id)) fail("no binary DEVICE_REMOVE");
    close(p.fd);
}

// ---- lockdown ----

std::string frame(plist_t req, bool binary) {
    char* out = nullptr;
    uint32_t len = 0;
    binary ? plist_to_bin(req, &out, &len) : plist_to_xml(req, &out, &len);
    uint32_t be = htonl(len);
    std::string f(reinterpret_cast<char*>(&be), 4);
    f.append(out, len);
    free(out);
    plist_free(req);
    return f;
}

// A request with only the keys given (no Label); the answer.
plist_t ask(Pipe& p, const char* name, std::vector<std::pair<const char*, plist_t>> keys = {}, bool binary = false) {
    plist_t req = plist_new_dict();
    plist_dict_set_item(req, "Request", plist_new_string(name));
    for (auto& [key, value] : keys) plist_dict_set_item(req, key, value);
    p.write(frame(req, binary));
    return parse(p.read(ntohl(at32(p.read(4), 0))));
}

void startTls(Pipe& p, plist_t pairRecord) {
    std::string cert = data(pairRecord, "HostCertificate"), key = data(pairRecord, "HostPrivateKey");
    BIO* cb = BIO_new_mem_buf(cert.data(), static_cast<int>(cert.size()));
    BIO* kb = BIO_new_mem_buf(key.data(), static_cast<int>(key.size()));
    X509* x = PEM_read_bio_X509(cb, nullptr, nullptr, nullptr);
    EVP_PKEY* k = PEM_read_bio_PrivateKey(kb, nullptr, nullptr, nullptr);
    SSL_CTX* ctx = SSL_CTX_new(TLS_client_method());
    SSL_CTX_set_cipher_list(ctx, "ALL:@SECLEVEL=0");
    if (!x || !k || SSL_CTX_use_certificate(ctx, x) != 1 || SSL_CTX_use_PrivateKey(ctx, k) != 1)
        fail("pair record without a usable host certificate");
    p.ssl = SSL_new(ctx);
    // The connection holds its own references to these.
    SSL_CTX_free(ctx);
    X509_free(x);
    EVP_PKEY_free(k);
    BIO_free(cb);
    BIO_free(kb);
    SSL_set_fd(p.ssl, p.fd);
    if (SSL_connect(p.ssl) != 1) fail("TLS handshake");
}

// Lockdown without Label, without Domain and Key, with unknown keys, in
// binary form, and a session from HostID alone. Answers are left to the
// end of the checks. Returns the pipe in session.
Pipe lockdownForms(uint32_t deviceId) {
    Pipe p = binaryConnect(deviceId, 62078);
    plist_t a = ask(p, "QueryType");
    if (str(a, "Type") != "com.apple.mobile.lockdown" || str(a, "Request") != "QueryType")
        fail("QueryType without Label");
    a = ask(p, "QueryType", {{"ProtocolVersion", plist_new_string("2")}, {"SomethingNew", plist_new_uint(7)}}, true);
    if (str(a, "Type") != "com.apple.mobile.lockdown") fail("binary QueryType with unknown keys");
    a = ask(p, "GetValue");
    if (str(plist_dict_get_item(a, "Value"), "UniqueDeviceID") != gUdid) fail("GetValue without Domain and Key");
    a = ask(p, "GetValue", {{"Key", plist_new_string("ProductVersion")}, {"Unheard", plist_new_bool(1)}});
    if (!plist_dict_get_item(a, "Value") || plist_dict_get_item(a, "Error")) fail("GetValue with an unknown key");

    plist_t id = plist_new_dict();
    plist_dict_set_item(id, "PairRecordID", plist_new_string(gUdid.c_str()));
    plist_t record = parse(data(muxCall("ReadPairRecord", id), "PairRecordData"));
    a = ask(p, "StartSession", {{"HostID", plist_new_string(str(record, "HostID").c_str())}});
    if (str(a, "SessionID").empty()) fail("StartSession without SystemBUID and Label");
    startTls(p, record);
    return p;
}

// StartService without EscrowBag, with an unknown key.
uint16_t startAfc(Pipe& lockdown) {
    plist_t a = ask(lockdown, "StartService",
                    {{"Service", plist_new_string("com.apple.afc")}, {"Unheard", plist_new_string("x")}});
    if (num(a, "Port") == UINT64_MAX || plist_dict_get_item(a, "Error")) fail("StartService without EscrowBag");
    return static_cast<uint16_t>(num(a, "Port"));
}

// ---- AFC ----

enum class Form { Terminated, Bare, Payload };

struct Afc {
    Pipe pipe;
    Form form;
    uint64_t packet = 0;

    struct Answer {
        uint64_t op;
        std::string data;
    };

    // Fixed numbers, then paths: the last path's NUL, and whether the
    // request data goes as payload, depend on the form.
    Answer send(uint64_t op, const std::string& numbers, const std::vector<std::string>& paths,
                const std::string& payload = "") {
        std::string d = numbers;
        for (size_t i = 0; i < paths.size(); ++i) {
            d += paths[i];
            if (i + 1 < paths.size() || form == Form::Terminated) d += '\0';
        }
        const bool asPayload = form == Form::Payload && !paths.empty();
        const std::string fixed = asPayload ? "" : d;
        const std::string body = asPayload ? d : payload;
        pipe.write("CFA6LPAA" + le64(40 + fixed.size() + body.size()) + le64(40 + fixed.size()) + le64(++packet) +
                   le64(op) + fixed + body);
        std::string h = pipe.read(40);
        std::string rest = pipe.read(at64(h, 8) - 40);
        if (at64(h, 24) != packet) fail("AFC packet number not echoed");
        return {at64(h, 32), rest};
    }

    // "status N" or the data answer.
    std::string call(uint64_t op, const std::string& numbers, const std::vector<std::string>& paths,
                     const std::string& payload = "") {
        Answer a = send(op, numbers, paths, payload);
        return a.op == 1 ? "status " + std::to_string(at64(a.data, 0)) : a.data;
    }

    uint64_t open(const std::string& path, uint64_t mode) {
        Answer a = send(0x0D, le64(mode), {path});
        if (a.op != 0x0E) fail("open " + path + ": status " + std::to_string(at64(a.data, 0)));
        return at64(a.data, 0);
    }

    // Selected values of a file info answer, or its status.
    std::string info(const std::string& path, std::vector<std::string> keys = {"st_ifmt", "st_size", "LinkTarget"}) {
        std::string a = call(0x0A, "", {path});
        if (a.rfind("status ", 0) == 0) return a;
        std::string out;
        for (size_t at = 0; at < a.size();) {
            std::string k = a.c_str() + at;
            at += k.size() + 1;
            std::string v = at < a.size() ? a.c_str() + at : "";
            at += v.size() + 1;
            for (auto& want : keys)
                if (k == want) out += (out.empty() ? "" : " ") + v;
        }
        return out;
    }
};

// Every operation that names a path, in a folder of its own.
std::vector<std::string> afcRun(uint32_t deviceId, uint16_t port, Form form, const std::string& dir) {
    Afc afc{binaryConnect(deviceId, port), form};
    std::vector<std::string> t;
    t.push_back("mkdir " + afc.call(0x09, "", {dir}));
    t.push_back("mkdir " + afc.call(0x09, "", {dir + "/tree/sub"}));
    uint64_t h = afc.open(dir + "/a.txt", 3);
    t.push_back("write " + afc.call(0x10, le64(h), {}, "hello raw"));
    t.push_back("close " + afc.call(0x14, le64(h), {}));
    t.push_back("info " + afc.info(dir + "/a.txt"));
    t.push_back("list " + afc.call(0x03, "", {dir}));
    h = afc.open(dir + "/a.txt", 1);
    t.push_back("read " + afc.call(0x0F, le64(h) + le64(100), {}));
    afc.call(0x14, le64(h), {});
    t.push_back("rename " + afc.call(0x18, "", {dir + "/a.txt", dir + "/b.txt"}));
    t.push_back("old " + afc.info(dir + "/a.txt"));
    t.push_back("link " + afc.call(0x1C, le64(2), {"b.txt", dir + "/link"}));
    t.push_back("info " + afc.info(dir + "/link"));
    t.push_back("time " + afc.call(0x1E, le64(1234567890123456789ull), {dir + "/b.txt"}));
    t.push_back("mtime " + afc.info(dir + "/b.txt", {"st_mtime"}));
    t.push_back("truncate " + afc.call(0x07, le64(4), {dir + "/b.txt"}));
    t.push_back("size " + afc.info(dir + "/b.txt", {"st_size"}));
    t.push_back("remove " + afc.call(0x08, "", {dir + "/link"}));
    t.push_back("gone " + afc.info(dir + "/link"));
    t.push_back("remove-tree " + afc.call(0x22, "", {dir + "/tree"}));
    t.push_back("gone " + afc.info(dir + "/tree/sub"));
    t.push_back("list " + afc.call(0x03, "", {dir}));
    close(afc.pipe.fd);
    for (auto& line : t)
        for (auto& c : line)
            if (c == '\0') c = ' ';
    return t;
}

// The same answers whether a path ends with its NUL, without it, or comes
// as payload.
void afcForms(uint32_t deviceId, Pipe& lockdown) {
    const std::vector<std::string> expected = {
        "mkdir status 0", "mkdir status 0", "write status 0", "close status 0", "info 9 S_IFREG",
        "list . .. a.txt tree ", "read hello raw", "rename status 0", "old status 8", "link status 0",
        "info 5 S_IFLNK b.txt", "time status 0", "mtime 1234567890123456789", "truncate status 0", "size 4",
        "remove status 0", "gone status 8", "remove-tree status 0", "gone status 8", "list . .. b.txt "};
    const char* names[] = {"with NUL", "without NUL", "as payload"};
    for (Form form : {Form::Terminated, Form::Bare, Form::Payload}) {
        const int n = static_cast<int>(form);
        // A started service serves one connection.
        auto t = afcRun(deviceId, startAfc(lockdown), form, "/raw-forms-" + std::to_string(n));
        for (size_t i = 0; i < expected.size(); ++i)
            if (i >= t.size() || t[i] != expected[i])
                fail(std::string("AFC paths ") + names[n] + ": '" + (i < t.size() ? t[i] : "") + "', expected '" +
                     expected[i] + "'");
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) fail("usage: raw_requests_check MUX_SOCKET CONTROL_SOCKET UDID");
    gMux = argv[1];
    gControl = argv[2];
    gUdid = argv[3];

    plist_t list = muxCall("ListDevices");
    plist_t devices = plist_dict_get_item(list, "DeviceList");
    uint32_t deviceId = 0;
    for (uint32_t i = 0; devices && i < plist_array_get_size(devices); ++i) {
        plist_t props = plist_dict_get_item(plist_array_get_item(devices, i), "Properties");
        if (str(props, "SerialNumber") == gUdid) deviceId = static_cast<uint32_t>(num(props, "DeviceID"));
    }
    if (!deviceId) fail("ListDevices without ClientVersionString and ProgName");
    plist_t buid = muxCall("ReadBUID");
    if (str(buid, "BUID").empty()) fail("ReadBUID without ClientVersionString and ProgName");

    binaryListen();
    binaryConnect(deviceId + 1000, 62078, 2);
    binaryConnect(deviceId, 1234, 3);
    Pipe lockdown = lockdownForms(deviceId);
    afcForms(deviceId, lockdown);
    SSL_free(lockdown.ssl);
    for (plist_t answer : gAnswers) plist_free(answer);
    printf("raw request forms answered as a device does\n");
    return 0;
}
