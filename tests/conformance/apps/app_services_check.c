/* The simulator's app services through libimobiledevice's own clients:
 *
 *   app_services_check icons ID1 ID2 UNKNOWN   springboard icons: real PNGs that
 *                                              decode, different per app, none
 *                                              for an unknown identifier
 *   app_services_check notify                  notification_proxy: an observed
 *                                              name posted by another client is
 *                                              relayed; Shutdown is answered
 *   app_services_check browse TYPE ATTR...     prints how many apps Browse gives
 *                                              and checks that every entry holds
 *                                              only the asked attributes
 *   app_services_check stage-install FILE      uploads FILE as-is over AFC and
 *                                              installs it; prints "installed"
 *                                              or the device's error name
 */
#include <libimobiledevice/afc.h>
#include <libimobiledevice/installation_proxy.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <libimobiledevice/notification_proxy.h>
#include <libimobiledevice/sbservices.h>
#include <plist/plist.h>
#include <zlib.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static idevice_t device;
static lockdownd_client_t lockdown;

static int fail(const char* what) {
    fprintf(stderr, "FAIL: %s\n", what);
    return 1;
}

static lockdownd_service_descriptor_t start(const char* name) {
    lockdownd_service_descriptor_t service = NULL;
    if (lockdownd_start_service(lockdown, name, &service) != LOCKDOWN_E_SUCCESS) return NULL;
    return service;
}

static unsigned be32(const unsigned char* p) {
    return (unsigned)p[0] << 24 | (unsigned)p[1] << 16 | (unsigned)p[2] << 8 | p[3];
}

/* Walks the chunks, checks each CRC, inflates the image data and checks that
 * it holds exactly one filtered row per line: what any PNG reader needs. */
static int png_decodes(const unsigned char* png, uint64_t size) {
    if (size < 8 || memcmp(png, "\x89PNG\r\n\x1a\n", 8) != 0) return 0;
    unsigned width = 0, height = 0, channels = 0;
    unsigned char* idat = NULL;
    size_t idat_size = 0;
    int ended = 0;
    for (uint64_t at = 8; at + 12 <= size;) {
        unsigned len = be32(png + at);
        if (at + 12 + len > size) break;
        const unsigned char* type = png + at + 4;
        if (crc32(0, type, len + 4) != be32(png + at + 8 + len)) return 0;
        if (memcmp(type, "IHDR", 4) == 0 && len == 13) {
            width = be32(type + 4);
            height = be32(type + 8);
            channels = type[13] == 2 ? 3 : type[13] == 6 ? 4 : type[13] == 0 ? 1 : 0;
            if (type[12] != 8) return 0;
        } else if (memcmp(type, "IDAT", 4) == 0) {
            idat = realloc(idat, idat_size + len);
            memcpy(idat + idat_size, type + 4, len);
            idat_size += len;
        } else if (memcmp(type, "IEND", 4) == 0) {
            ended = 1;
        }
        at += 12 + len;
    }
    int ok = 0;
    if (ended && width && height && channels && idat) {
        uLongf expected = (uLongf)height * (1 + (uLongf)width * channels);
        uLongf got = expected + 1;
        unsigned char* raw = malloc(got);
        ok = uncompress(raw, &got, idat, idat_size) == Z_OK && got == expected;
        free(raw);
    }
    free(idat);
    return ok;
}

static int icons(int argc, char** argv) {
    if (argc < 3) return fail("icons needs two identifiers and an unknown one");
    lockdownd_service_descriptor_t service = start("com.apple.springboardservices");
    if (!service) return fail("springboardservices did not start");
    sbservices_client_t sb = NULL;
    if (sbservices_client_new(device, service, &sb) != SBSERVICES_E_SUCCESS) return fail("sbservices client");
    char* png[2] = {NULL, NULL};
    uint64_t size[2] = {0, 0};
    for (int i = 0; i < 2; ++i) {
        if (sbservices_get_icon_pngdata(sb, argv[i], &png[i], &size[i]) != SBSERVICES_E_SUCCESS || !png[i])
            return fail("no icon for a known app");
        if (!png_decodes((unsigned char*)png[i], size[i])) return fail("icon is not a decodable PNG");
    }
    if (size[0] == size[1] && memcmp(png[0], png[1], size[0]) == 0) return fail("two apps share one icon");
    char* again = NULL;
    uint64_t again_size = 0;
    sbservices_get_icon_pngdata(sb, argv[0], &again, &again_size);
    if (again_size != size[0] || memcmp(again, png[0], size[0]) != 0) return fail("an app's icon changed");
    char* none = NULL;
    uint64_t none_size = 0;
    sbservices_get_icon_pngdata(sb, argv[2], &none, &none_size);
    if (none || none_size) return fail("an unknown identifier got icon data");
    printf("icons %llu %llu\n", (unsigned long long)size[0], (unsigned long long)size[1]);
    free(png[0]);
    free(png[1]);
    free(again);
    sbservices_client_free(sb);
    lockdownd_service_descriptor_free(service);
    return 0;
}

static volatile int relayed;
static char relayed_name[256];

static void on_notification(const char* name, void* user) {
    (void)user;
    if (name && *name && !relayed) {
        snprintf(relayed_name, sizeof relayed_name, "%s", name);
        relayed = 1;
    }
}

static int notify(void) {
    lockdownd_service_descriptor_t s1 = start("com.apple.mobile.notification_proxy");
    lockdownd_service_descriptor_t s2 = start("com.apple.mobile.notification_proxy");
    if (!s1 || !s2) return fail("notification_proxy did not start");
    np_client_t observer = NULL, poster = NULL;
    if (np_client_new(device, s1, &observer) != NP_E_SUCCESS || np_client_new(device, s2, &poster) != NP_E_SUCCESS)
        return fail("np clients");
    lockdownd_service_descriptor_free(s1);
    lockdownd_service_descriptor_free(s2);
    np_observe_notification(observer, "com.zebrelo.test.ping");
    np_set_notify_callback(observer, on_notification, NULL);
    usleep(200 * 1000);
    np_post_notification(poster, "com.zebrelo.test.unobserved");
    np_post_notification(poster, "com.zebrelo.test.ping");
    for (int i = 0; i < 50 && !relayed; ++i) usleep(100 * 1000);
    if (!relayed || strcmp(relayed_name, "com.zebrelo.test.ping") != 0) return fail("posted name not relayed");
    /* Without a callback thread np_client_free sends Shutdown and waits for
     * ProxyDeath: a device that never answers makes this take 30 s. */
    np_client_free(poster);
    np_client_free(observer);
    printf("relayed %s\n", relayed_name);
    return 0;
}

static int browse(int argc, char** argv) {
    if (argc < 1) return fail("browse needs an application type");
    lockdownd_service_descriptor_t service = start("com.apple.mobile.installation_proxy");
    if (!service) return fail("installation_proxy did not start");
    instproxy_client_t ip = NULL;
    if (instproxy_client_new(device, service, &ip) != INSTPROXY_E_SUCCESS) return fail("instproxy client");
    lockdownd_service_descriptor_free(service);
    plist_t options = instproxy_client_options_new();
    if (strcmp(argv[0], "Any") != 0) instproxy_client_options_add(options, "ApplicationType", argv[0], NULL);
    if (argc > 1) {
        plist_t attrs = plist_new_array();
        for (int i = 1; i < argc; ++i) plist_array_append_item(attrs, plist_new_string(argv[i]));
        plist_dict_set_item(options, "ReturnAttributes", attrs);
    }
    plist_t apps = NULL;
    if (instproxy_browse(ip, options, &apps) != INSTPROXY_E_SUCCESS || !apps) return fail("browse failed");
    uint32_t n = plist_array_get_size(apps);
    for (uint32_t i = 0; i < n; ++i) {
        plist_t app = plist_array_get_item(apps, i);
        if (argc > 1 && plist_dict_get_size(app) > (uint32_t)(argc - 1)) return fail("an entry has unasked attributes");
        if (argc == 1 && plist_dict_get_item(app, "StaticDiskUsage")) return fail("disk usage given unasked");
        if (argc == 1 && !plist_dict_get_item(app, "CFBundleIdentifier")) return fail("entry without identifier");
    }
    printf("%u\n", n);
    plist_free(apps);
    instproxy_client_options_free(options);
    instproxy_client_free(ip);
    return 0;
}

static volatile int install_done;
static char install_error[128];

static void on_install_status(plist_t command, plist_t status, void* user) {
    (void)command;
    (void)user;
    char* name = NULL;
    char* description = NULL;
    uint64_t code = 0;
    if (instproxy_status_get_error(status, &name, &description, &code) != INSTPROXY_E_SUCCESS && name) {
        snprintf(install_error, sizeof install_error, "%s", name);
        install_done = 1;
    }
    char* status_name = NULL;
    instproxy_status_get_name(status, &status_name);
    if (status_name && strcmp(status_name, "Complete") == 0) install_done = 1;
    free(status_name);
    free(name);
    free(description);
}

static int stage_install(const char* file) {
    FILE* in = fopen(file, "rb");
    if (!in) return fail("cannot read the package");
    lockdownd_service_descriptor_t afc_service = start("com.apple.afc");
    lockdownd_service_descriptor_t ip_service = start("com.apple.mobile.installation_proxy");
    if (!afc_service || !ip_service) return fail("services did not start");
    afc_client_t afc = NULL;
    instproxy_client_t ip = NULL;
    if (afc_client_new(device, afc_service, &afc) != AFC_E_SUCCESS ||
        instproxy_client_new(device, ip_service, &ip) != INSTPROXY_E_SUCCESS)
        return fail("clients");
    lockdownd_service_descriptor_free(afc_service);
    lockdownd_service_descriptor_free(ip_service);
    afc_make_directory(afc, "PublicStaging");
    uint64_t handle = 0;
    if (afc_file_open(afc, "PublicStaging/staged.ipa", AFC_FOPEN_WRONLY, &handle) != AFC_E_SUCCESS)
        return fail("afc open");
    char buf[65536];
    size_t got;
    while ((got = fread(buf, 1, sizeof buf, in)) > 0) {
        uint32_t written = 0;
        afc_file_write(afc, handle, buf, (uint32_t)got, &written);
    }
    fclose(in);
    afc_file_close(afc, handle);
    /* Install always runs asynchronously: the callback sees every status
     * message until Complete or an error. */
    if (instproxy_install(ip, "PublicStaging/staged.ipa", NULL, on_install_status, NULL) != INSTPROXY_E_SUCCESS)
        return fail("install not sent");
    for (int i = 0; i < 100 && !install_done; ++i) usleep(100 * 1000);
    if (!install_done) return fail("no final answer to Install");
    if (install_error[0])
        printf("%s\n", install_error);
    else
        printf("installed\n");
    instproxy_client_free(ip);
    afc_client_free(afc);
    return 0;
}

int main(int argc, char** argv) {
    if (argc < 2) return fail("usage: app_services_check icons|notify|browse|stage-install ...");
    /* ZSIM_UDID picks one of several simulated devices. */
    if (idevice_new(&device, getenv("ZSIM_UDID")) != IDEVICE_E_SUCCESS) return fail("no device");
    if (lockdownd_client_new_with_handshake(device, &lockdown, "app_services_check") != LOCKDOWN_E_SUCCESS)
        return fail("lockdown");
    int rc = 2;
    if (strcmp(argv[1], "icons") == 0) rc = icons(argc - 2, argv + 2);
    else if (strcmp(argv[1], "notify") == 0) rc = notify();
    else if (strcmp(argv[1], "browse") == 0) rc = browse(argc - 2, argv + 2);
    else if (strcmp(argv[1], "stage-install") == 0 && argc > 2) rc = stage_install(argv[2]);
    lockdownd_client_free(lockdown);
    idevice_free(device);
    return rc;
}
