/* Subscribes to libusbmuxd's device events and checks that attaching,
 * pairing (trust given through the control channel) and detaching a device
 * arrive in that order, each exactly once. */
#include "sim_control_client.h"

#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <usbmuxd.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define MAX_EVENTS 64

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static int event_types[MAX_EVENTS];
static char event_udids[MAX_EVENTS][64];
static int event_count;

static void on_event(const usbmuxd_event_t* event, void* user_data) {
    (void)user_data;
    pthread_mutex_lock(&lock);
    if (event_count < MAX_EVENTS) {
        event_types[event_count] = event->event;
        snprintf(event_udids[event_count], sizeof(event_udids[0]), "%s", event->device.udid);
        event_count++;
    }
    pthread_mutex_unlock(&lock);
}

/* Waits up to five seconds for an event of `type` for `udid`. */
static int wait_for(int type, const char* udid) {
    for (int i = 0; i < 100; i++) {
        pthread_mutex_lock(&lock);
        for (int e = 0; e < event_count; e++) {
            if (event_types[e] == type && strcmp(event_udids[e], udid) == 0) {
                pthread_mutex_unlock(&lock);
                return 1;
            }
        }
        pthread_mutex_unlock(&lock);
        usleep(50000);
    }
    return 0;
}

static int fail(const char* what) {
    fprintf(stderr, "FAIL: %s\n", what);
    pthread_mutex_lock(&lock);
    for (int e = 0; e < event_count; e++) fprintf(stderr, "  event %d %s\n", event_types[e], event_udids[e]);
    pthread_mutex_unlock(&lock);
    return 1;
}

int main(void) {
    const char* control = getenv("ZSIM_CONTROL");
    const char* profile = getenv("ZSIM_PROFILE");
    if (!control || !profile) return fail("ZSIM_CONTROL and ZSIM_PROFILE must be set");

    usbmuxd_subscription_context_t ctx = NULL;
    if (usbmuxd_events_subscribe(&ctx, on_event, NULL) != 0) return fail("subscribe");
    if (!wait_for(UE_DEVICE_ADD, "00008110-001A2B3C4D5E601E")) return fail("the present device was not announced");

    char answer[512], command[1024];
    snprintf(command, sizeof(command), "attach %s", profile);
    if (sim_control(control, command, answer, sizeof(answer)) != 0) return fail(answer);
    char udid[64];
    snprintf(udid, sizeof(udid), "%.63s", answer + 3);
    if (!wait_for(UE_DEVICE_ADD, udid)) return fail("no add event for the attached device");

    idevice_t device = NULL;
    lockdownd_client_t client = NULL;
    if (idevice_new_with_options(&device, udid, IDEVICE_LOOKUP_USBMUX) != IDEVICE_E_SUCCESS) return fail("device");
    if (lockdownd_client_new(device, &client, "mux_events_check") != LOCKDOWN_E_SUCCESS) return fail("lockdown");
    if (lockdownd_pair(client, NULL) != LOCKDOWN_E_PAIRING_DIALOG_RESPONSE_PENDING) return fail("dialog should be pending");
    usleep(300000);
    pthread_mutex_lock(&lock);
    for (int e = 0; e < event_count; e++)
        if (event_types[e] == UE_DEVICE_PAIRED) {
            pthread_mutex_unlock(&lock);
            return fail("paired before the user trusted");
        }
    pthread_mutex_unlock(&lock);

    snprintf(command, sizeof(command), "trust %s", udid);
    if (sim_control(control, command, answer, sizeof(answer)) != 0) return fail(answer);
    if (lockdownd_pair(client, NULL) != LOCKDOWN_E_SUCCESS) return fail("pair after trust");
    if (!wait_for(UE_DEVICE_PAIRED, udid)) return fail("no paired event");
    lockdownd_client_free(client);
    idevice_free(device);

    snprintf(command, sizeof(command), "detach %s", udid);
    if (sim_control(control, command, answer, sizeof(answer)) != 0) return fail(answer);
    if (!wait_for(UE_DEVICE_REMOVE, udid)) return fail("no remove event");

    /* The whole story of that device, in order and nothing twice. */
    int expected[] = {UE_DEVICE_ADD, UE_DEVICE_PAIRED, UE_DEVICE_REMOVE};
    int seen = 0;
    pthread_mutex_lock(&lock);
    for (int e = 0; e < event_count; e++) {
        if (strcmp(event_udids[e], udid) != 0) continue;
        if (seen >= 3 || event_types[e] != expected[seen]) {
            pthread_mutex_unlock(&lock);
            return fail("events out of order");
        }
        seen++;
    }
    pthread_mutex_unlock(&lock);
    usbmuxd_events_unsubscribe(ctx);
    if (seen != 3) return fail("missing events");
    printf("events in order: add, paired, remove\n");
    return 0;
}
