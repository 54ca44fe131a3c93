/* A device's media partition through libimobiledevice's own AFC client:
 *
 *   media_check UDID tree              every file as "path size", folders as
 *                                      "path/", in the order the device lists
 *   media_check UDID space             "FSTotalBytes FSFreeBytes"
 *   media_check UDID write PATH BYTES  writes BYTES bytes in 1 MiB pieces until
 *                                      one fails; prints "status written"
 *   media_check UDID rm PATH           prints the remove's status
 */
#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static afc_client_t afc;

static char* info_value(char** info, const char* key) {
    for (char** p = info; p && p[0] && p[1]; p += 2)
        if (strcmp(p[0], key) == 0) return p[1];
    return NULL;
}

static void tree(const char* folder) {
    char** names = NULL;
    if (afc_read_directory(afc, folder, &names) != AFC_E_SUCCESS) return;
    for (char** name = names; name && *name; ++name) {
        if (strcmp(*name, ".") == 0 || strcmp(*name, "..") == 0) continue;
        char path[4096];
        snprintf(path, sizeof path, "%s%s%s", folder, strcmp(folder, "/") == 0 ? "" : "/", *name);
        char** info = NULL;
        if (afc_get_file_info(afc, path, &info) != AFC_E_SUCCESS) continue;
        const char* type = info_value(info, "st_ifmt");
        if (type && strcmp(type, "S_IFDIR") == 0) {
            printf("%s/\n", path);
            tree(path);
        } else {
            const char* size = info_value(info, "st_size");
            printf("%s %s\n", path, size ? size : "?");
        }
        afc_dictionary_free(info);
    }
    afc_dictionary_free(names);
}

static int write_file(const char* path, unsigned long long bytes) {
    uint64_t handle = 0;
    afc_error_t err = afc_file_open(afc, path, AFC_FOPEN_WRONLY, &handle);
    unsigned long long written = 0;
    static char piece[1 << 20];
    memset(piece, 'z', sizeof piece);
    while (err == AFC_E_SUCCESS && written < bytes) {
        uint32_t n = bytes - written < sizeof piece ? (uint32_t)(bytes - written) : (uint32_t)sizeof piece;
        uint32_t sent = 0;
        err = afc_file_write(afc, handle, piece, n, &sent);
        if (err == AFC_E_SUCCESS) written += sent;
    }
    if (handle) afc_file_close(afc, handle);
    /* What landed, as the device tells it: a refused write may have written some bytes. */
    char** info = NULL;
    if (afc_get_file_info(afc, path, &info) == AFC_E_SUCCESS) {
        const char* size = info_value(info, "st_size");
        if (size) written = strtoull(size, NULL, 10);
        afc_dictionary_free(info);
    }
    printf("%d %llu\n", (int)err, written);
    return 0;
}

int main(int argc, char** argv) {
    if (argc < 3) return fprintf(stderr, "usage: media_check UDID tree|space|write|rm ...\n"), 2;
    idevice_t device = NULL;
    lockdownd_client_t lockdown = NULL;
    lockdownd_service_descriptor_t service = NULL;
    if (idevice_new(&device, argv[1]) != IDEVICE_E_SUCCESS ||
        lockdownd_client_new_with_handshake(device, &lockdown, "media_check") != LOCKDOWN_E_SUCCESS ||
        lockdownd_start_service(lockdown, AFC_SERVICE_NAME, &service) != LOCKDOWN_E_SUCCESS ||
        afc_client_new(device, service, &afc) != AFC_E_SUCCESS)
        return fprintf(stderr, "FAIL: no AFC connection to %s\n", argv[1]), 1;

    int rc = 0;
    const char* cmd = argv[2];
    if (strcmp(cmd, "tree") == 0) {
        tree("/");
    } else if (strcmp(cmd, "space") == 0) {
        char** info = NULL;
        rc = afc_get_device_info(afc, &info) != AFC_E_SUCCESS;
        const char* total = info_value(info, "FSTotalBytes");
        const char* free_bytes = info_value(info, "FSFreeBytes");
        printf("%s %s\n", total ? total : "?", free_bytes ? free_bytes : "?");
        afc_dictionary_free(info);
    } else if (strcmp(cmd, "write") == 0 && argc == 5) {
        rc = write_file(argv[3], strtoull(argv[4], NULL, 10));
    } else if (strcmp(cmd, "rm") == 0 && argc == 4) {
        printf("%d\n", (int)afc_remove_path(afc, argv[3]));
    } else {
        rc = 2;
    }
    afc_client_free(afc);
    lockdownd_service_descriptor_free(service);
    lockdownd_client_free(lockdown);
    idevice_free(device);
    return rc;
}
