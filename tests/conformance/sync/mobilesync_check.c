/* The simulator's com.apple.mobilesync through libimobiledevice's own
 * mobilesync client (mobilesync_send/receive only where the device's anchor
 * has to be seen, which mobilesync_start keeps to itself):
 *
 *   mobilesync_check read UDID CLASS       slow sync reading every record, each
 *                                          page acknowledged; prints
 *                                          "records N pages P parents A children B"
 *                                          (and the time taken on stderr)
 *   mobilesync_check list UDID CLASS       the same, one line per record:
 *                                          "ID|ENTITY|NAME"
 *   mobilesync_check entities UDID CLASS   the same, one line per entity, in the
 *                                          order first met: "ENTITY COUNT"
 *   mobilesync_check fields UDID CLASS     the same, one line per field of every
 *                                          record: "ID|FIELD|VALUE", fields sorted
 *   mobilesync_check add UDID FIRST LAST   reads all, then sends a contact and a
 *                                          phone number linked by the host's id;
 *                                          prints "contact ID phone ID"
 *   mobilesync_check roundtrip UDID CLASS  adds records of a calendar, bookmark or
 *                                          note class and removes them again (see
 *                                          roundtrip.c)
 *   mobilesync_check clear UDID CLASS      clears the class on the device
 *   mobilesync_check anchor UDID           finishes an empty contacts session and
 *                                          prints the device's anchor from it
 *   mobilesync_check changes UDID ANCHOR   a contacts session with that anchor;
 *                                          prints "fast|slow parents P children C"
 *   mobilesync_check refusals UDID         classes and host versions the device
 *                                          turns down, with the device's reason
 */
#include "record_shapes.h"
#include "roundtrip.h"
#include "sync_client.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum output { COUNTS, LIST, ENTITIES, FIELDS };

static double seconds_since(const struct timespec* t0) {
    struct timespec t1;
    clock_gettime(CLOCK_MONOTONIC, &t1);
    return (double)(t1.tv_sec - t0->tv_sec) + (t1.tv_nsec - t0->tv_nsec) / 1e9;
}

static int compare_strings(const void* a, const void* b) { return strcmp(*(char* const*)a, *(char* const*)b); }

/* "ID|FIELD|VALUE" for each field of the record, fields sorted. */
static void print_fields(const char* id, plist_t record) {
    char* keys[64];
    unsigned n = 0;
    plist_dict_iter it = NULL;
    plist_dict_new_iter(record, &it);
    for (;;) {
        char* key = NULL;
        plist_t value = NULL;
        plist_dict_next_item(record, it, &key, &value);
        if (!key) break;
        if (n < sizeof keys / sizeof *keys)
            keys[n++] = key;
        else
            free(key);
    }
    free(it);
    qsort(keys, n, sizeof *keys, compare_strings);
    for (unsigned i = 0; i < n; ++i) {
        printf("%s|%s|", id, keys[i]);
        print_value(stdout, plist_dict_get_item(record, keys[i]));
        putchar('\n');
        free(keys[i]);
    }
}

static void print_all_fields(plist_t seen) {
    plist_dict_iter it = NULL;
    plist_dict_new_iter(seen, &it);
    for (;;) {
        char* id = NULL;
        plist_t record = NULL;
        plist_dict_next_item(seen, it, &id, &record);
        if (!id) break;
        print_fields(id, record);
        free(id);
    }
    free(it);
}

/* What one exchange needs beside its client and its reading. */
struct exchange {
    const char* data_class;
    const char* device_anchor;
    const char* first;
    const char* last;
    enum output output;
};

typedef int (*exchange_fn)(mobilesync_client_t client, struct reading* r, const struct exchange* x);

/* Runs one exchange on a fresh client. However it ends, the client and the
 * reading are given back: the leak checker watches these tools as well. */
static int on_fresh_client(int full, exchange_fn run, const struct exchange* x) {
    mobilesync_client_t client = connect_sync();
    if (!client) return fail("mobilesync did not start");
    struct reading r;
    reading_init(&r, full);
    const int rc = run(client, &r, x);
    /* A session that ended early is cancelled, which gives back what the
     * library holds for it (without a session this does nothing). */
    if (rc) mobilesync_cancel(client, "the host gave up");
    reading_free(&r);
    mobilesync_client_free(client);
    return rc;
}

/* A start that fails gives back the device's reason as well. */
static int start_or_fail(mobilesync_client_t client, const char* data_class, const char* device_anchor,
                         uint64_t version, mobilesync_sync_type_t* type) {
    char* error = NULL;
    mobilesync_error_t e = start_session(client, data_class, device_anchor, version, type, &error);
    int rc = e == MOBILESYNC_E_SUCCESS ? 0 : failed(error ? error : "start", e);
    free(error);
    return rc;
}

/* Reads every page; a session the host stops reading is cancelled, not
 * just dropped, so the library gives back what it holds for it. */
static int read_pages(mobilesync_client_t client, struct reading* r) {
    if (!receive_pages(client, r)) return 0;
    mobilesync_cancel(client, "the host stopped reading");
    return 1;
}

static int read_all_on(mobilesync_client_t client, struct reading* r, const struct exchange* x) {
    struct timespec t0, t_records;
    clock_gettime(CLOCK_MONOTONIC, &t0);
    mobilesync_sync_type_t type = 0;
    if (start_or_fail(client, x->data_class, NULL, host_version(x->data_class), &type)) return 1;
    if (type != MOBILESYNC_SYNC_TYPE_SLOW) return fail("a first sync that is not slow");
    clock_gettime(CLOCK_MONOTONIC, &t_records);
    mobilesync_error_t e;
    if ((e = mobilesync_get_all_records_from_device(client)) != MOBILESYNC_E_SUCCESS) return failed("get all", e);
    r->list = x->output == LIST;
    if (read_pages(client, r)) return 1;
    const double records_time = seconds_since(&t_records);
    if ((e = mobilesync_ready_to_send_changes_from_computer(client)) != MOBILESYNC_E_SUCCESS)
        return failed("ready to receive", e);
    if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) return failed("finish", e);
    if (x->output == COUNTS)
        printf("records %u pages %u parents %u children %u\n", r->records, r->pages, r->parents, r->children);
    for (unsigned i = 0; x->output == ENTITIES && i < r->kinds; ++i) printf("%s %u\n", r->entity[i], r->count[i]);
    if (x->output == FIELDS) print_all_fields(r->seen);
    fprintf(stderr, "read took %.3f s, %.3f s of it for the records\n", seconds_since(&t0), records_time);
    return 0;
}

static int read_all(const char* data_class, enum output output) {
    const struct exchange x = {.data_class = data_class, .output = output};
    return on_fresh_client(1, read_all_on, &x);
}

/* Reads all, then sends a contact and its phone number, the phone linked
 * by the host's id for the contact. */
static int add_on(mobilesync_client_t client, struct reading* r, const struct exchange* x) {
    mobilesync_sync_type_t type = 0;
    if (start_or_fail(client, CONTACTS, NULL, 106, &type)) return 1;
    mobilesync_error_t e;
    if ((e = mobilesync_get_all_records_from_device(client)) != MOBILESYNC_E_SUCCESS) return failed("get all", e);
    if (read_pages(client, r)) return 1;
    if ((e = mobilesync_ready_to_send_changes_from_computer(client)) != MOBILESYNC_E_SUCCESS)
        return failed("ready to receive", e);

    plist_t contact = new_record("com.apple.contacts.Contact");
    plist_dict_set_item(contact, "first name", plist_new_string(x->first));
    plist_dict_set_item(contact, "last name", plist_new_string(x->last));
    plist_dict_set_item(contact, "display as company", plist_new_string("person"));
    char* contact_id = send_one(client, "HOST-CONTACT-1", contact, "com.apple.contacts.Contact", 0);
    if (!contact_id) return fail("no device id for the new contact");
    plist_t phone = new_record("com.apple.contacts.Phone Number");
    plist_dict_set_item(phone, "type", plist_new_string("mobile"));
    plist_dict_set_item(phone, "value", plist_new_string("+1 555 0199 0000"));
    plist_dict_set_item(phone, "contact", one_link("HOST-CONTACT-1"));
    char* phone_id = send_one(client, "HOST-PHONE-1", phone, "com.apple.contacts.Phone Number", 1);
    int rc = 0;
    if (!phone_id) rc = fail("no device id for a phone linked by the host's contact id");
    else if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) rc = failed("finish", e);
    else printf("contact %s phone %s\n", contact_id, phone_id);
    free(contact_id);
    free(phone_id);
    return rc;
}

static int add(const char* first, const char* last) {
    const struct exchange x = {.first = first, .last = last};
    return on_fresh_client(1, add_on, &x);
}

static int clear_on(mobilesync_client_t client, struct reading* r, const struct exchange* x) {
    (void)r;
    mobilesync_sync_type_t type = 0;
    if (start_or_fail(client, x->data_class, NULL, host_version(x->data_class), &type)) return 1;
    mobilesync_error_t e;
    if ((e = mobilesync_clear_all_records_on_device(client)) != MOBILESYNC_E_SUCCESS) return failed("clear", e);
    if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) return failed("finish", e);
    return 0;
}

static int clear(const char* data_class) {
    const struct exchange x = {.data_class = data_class};
    return on_fresh_client(1, clear_on, &x);
}

static int anchor(void) {
    mobilesync_client_t client = connect_sync();
    if (!client) return fail("mobilesync did not start");
    char* anchor = raw_session(client, CONTACTS);
    if (!anchor) {
        mobilesync_client_free(client);
        return fail("session");
    }
    printf("%s\n", anchor);
    free(anchor);
    mobilesync_client_free(client);
    return 0;
}

/* A contacts session with the given device anchor: the changes come in
 * two pages whatever the sync type, parents then children. */
static int changes_on(mobilesync_client_t client, struct reading* r, const struct exchange* x) {
    mobilesync_sync_type_t type = 0;
    if (start_or_fail(client, CONTACTS, x->device_anchor, 106, &type)) return 1;
    mobilesync_error_t e;
    if ((e = mobilesync_get_changes_from_device(client)) != MOBILESYNC_E_SUCCESS) return failed("get changes", e);
    if (read_pages(client, r)) return 1;
    if (r->pages != 2) return failed("pages of contact changes", (int)r->pages);
    if ((e = mobilesync_ready_to_send_changes_from_computer(client)) != MOBILESYNC_E_SUCCESS)
        return failed("ready after changes", e);
    if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) return failed("finish", e);
    printf("%s parents %u children %u\n", type == MOBILESYNC_SYNC_TYPE_FAST ? "fast" : "slow", r->parents, r->children);
    return 0;
}

static int changes(const char* device_anchor) {
    const struct exchange x = {.device_anchor = device_anchor};
    return on_fresh_client(0, changes_on, &x);
}

static int expect_refusal(mobilesync_client_t client, const char* data_class, uint64_t version, const char* reason) {
    mobilesync_sync_type_t type = 0;
    char* error = NULL;
    mobilesync_error_t e = start_session(client, data_class, NULL, version, &type, &error);
    int rc = 0;
    if (e != MOBILESYNC_E_SYNC_REFUSED) rc = failed(data_class, e);
    else if (!error || strcmp(error, reason) != 0) rc = fail(error ? error : "a refusal without a reason");
    free(error);
    if (rc) return rc;
    /* The host still finishes the class it asked for. */
    if ((e = mobilesync_finish(client)) != MOBILESYNC_E_SUCCESS) return failed("finish after a refusal", e);
    return 0;
}

static int refusals_on(mobilesync_client_t client, struct reading* r, const struct exchange* x) {
    (void)r;
    (void)x;
    const char* no_store = "No Data Store available for data class";
    if (expect_refusal(client, "com.apple.MailAccounts", 102, no_store) ||
        expect_refusal(client, "com.example.Nothing", 100, no_store) ||
        expect_refusal(client, CONTACTS, 0,
                       "Your computer's software is out of date. Please update and try again!"))
        return 1;
    printf("refusals ok\n");
    return 0;
}

static int refusals(void) {
    const struct exchange x = {0};
    return on_fresh_client(0, refusals_on, &x);
}

/* Whether `name` is one of the full reads, and what it prints. */
static int read_output(const char* name, enum output* output) {
    static const char* const names[] = {"read", "list", "entities", "fields"};
    for (int i = 0; i < 4; ++i)
        if (strcmp(name, names[i]) == 0) {
            *output = (enum output)i;
            return 1;
        }
    return 0;
}

int main(int argc, char** argv) {
    if (argc < 3)
        return fail("usage: mobilesync_check read|list|entities|fields|add|roundtrip|clear|anchor|changes|refusals "
                    "UDID ...");
    if (idevice_new(&device, argv[2]) != IDEVICE_E_SUCCESS) return fail("no device");
    int rc = 2;
    enum output output;
    if (argc > 3 && read_output(argv[1], &output))
        rc = read_all(argv[3], output);
    else if (strcmp(argv[1], "add") == 0 && argc > 4)
        rc = add(argv[3], argv[4]);
    else if (strcmp(argv[1], "roundtrip") == 0 && argc > 3)
        rc = roundtrip(argv[3]);
    else if (strcmp(argv[1], "clear") == 0 && argc > 3)
        rc = clear(argv[3]);
    else if (strcmp(argv[1], "anchor") == 0)
        rc = anchor();
    else if (strcmp(argv[1], "changes") == 0 && argc > 3)
        rc = changes(argv[3]);
    else if (strcmp(argv[1], "refusals") == 0)
        rc = refusals();
    idevice_free(device);
    return rc;
}
