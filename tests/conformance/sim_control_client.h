/* One command to zebrelo-sim's control socket; the answer line (without its
 * newline) goes to `answer`. Returns 0 when the answer starts with "ok". */
#ifndef SIM_CONTROL_CLIENT_H
#define SIM_CONTROL_CLIENT_H

#include <stddef.h>

int sim_control(const char* socket_path, const char* command, char* answer, size_t answer_size);

#endif
