/* A host's add and remove on a calendar, bookmark or note class, as the
 * worker does them, through libimobiledevice's mobilesync client. */
#pragma once

/* In four sessions: the device's anchor; a full read, then records sent
 * with host ids, later ones linking earlier ones by host or device id,
 * and the session cancelled; a fast session whose changes, in one page,
 * are exactly those records with their links on device ids, after which
 * the first of them is removed with ___EmptyParameterString___ (taking
 * the others along); and a full read without them. Prints
 *   remap HOST-KEY DEVICE-ID     (for each record sent)
 *   changes N pages P
 *   records BEFORE then AFTER
 */
int roundtrip(const char* data_class);
