// Socket messages between the application, the launch service and the supervisors: local stream
// sockets, a request line, then JSON.
//
// A request is a command word and "\r\n", then at most one JSON value (an object or a quoted
// string) that ends by its own syntax. An answer is one JSON object followed by "\r\n". A message
// is at most 1 MiB and 64 levels deep.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/time.h>
#include <sys/types.h>

struct json;

inline constexpr size_t CLI2_MESSAGE_MAX = 1024 * 1024;
inline constexpr unsigned CLI2_DEPTH_MAX = 64;
// Error codes of answers that have a meaning of their own.
inline constexpr int CLI2_ERROR_JOB_ENDED = 10;

// Connects to the socket at `path` and, when `command` is not null, sends it as the request line.
// A socket that another user (root aside) serves is treated as not there (ENOENT). The descriptor,
// or -1 with errno set: ETIMEDOUT when the peer takes no connection, or not the request, for 5 s.
int cli2_connect(const char *path, const char *command);
// Sends all bytes, resuming after signals. 0, or -1 with errno set (no SIGPIPE): ETIMEDOUT when
// the peer leaves no room for 5 s, EAGAIN at once with MSG_DONTWAIT.
int cli2_send(int fd, const void *bytes, size_t length, int flags);
// One read of raw bytes, resumed after signals: as recv.
ssize_t cli2_recv(int fd, void *buffer, size_t size, int flags);
// Sends a tree, without an end mark. 0, or -1 with errno set.
int cli2_send_json(int fd, const struct json *tree);
// Reads one JSON answer and no byte beyond its end. Null with errno: ENOTCONN at end of stream
// before any byte, ECONNRESET in the middle, EPROTO for garbage, EMSGSIZE past the caps.
struct json *cli2_recv_json(int fd);
// The same with a deadline for the whole answer, counted from the call: ETIMEDOUT. A time-out of
// zero waits without limit.
struct json *cli2_recv_json_to(int fd, struct timeval timeout);
// The same; descriptors that come with the answer are stored in `fds`, up to `*count`, which gets
// their number; the caller closes them. They are closed when the read fails.
struct json *cli2_recv_json_fds(int fd, struct timeval timeout, int *fds, size_t *count);

// ---- the serving side -------------------------------------------------------------------------

// Makes and binds a listening socket at `path` with mode 0600, non-blocking and close-on-exec. A
// stale socket file of a dead process is replaced; a live one is EADDRINUSE, a file that is no
// socket EEXIST. -1 with errno set.
int cli2_listen(const char *path);
// Accepts one connection (non-blocking, close-on-exec) of this user or root. -1 with errno: EAGAIN
// when none waits, EPERM when another user's was closed.
int cli2_accept(int listener);

// Collects one request from a connection, however its bytes arrive.
struct cli2_request;
struct cli2_request *cli2_request_new();
void cli2_request_free(struct cli2_request *request);
// Feeds bytes. 1 when the request line is complete and its JSON value too, which is waited for when
// `wants_json` of the command says so or when one begins right behind the line in these bytes; 0
// when more is needed; -1 with errno EPROTO or EMSGSIZE. `*used` gets the number of bytes that
// belong to the request.
int cli2_request_feed(struct cli2_request *request, const char *bytes, size_t length, size_t *used,
                      bool (*wants_json)(const char *command));
const char *cli2_request_command(const struct cli2_request *request);
// The JSON value, or null when the request has none. It belongs to the request.
const struct json *cli2_request_json(const struct cli2_request *request);

// Sends an answer: {"status":"OK","body":…} or {"status":"ERROR","error":…,"message":…[,"body":…]}
// and "\r\n". `body` may be null; it is not taken over. Descriptors go with the first byte. 0, or
// -1 with errno set: EMSGSIZE for an answer past the cap (nothing is sent then).
int cli2_answer(int fd, const struct json *body, const int *fds, size_t count);
int cli2_answer_error(int fd, int error, const char *message, const struct json *body);
