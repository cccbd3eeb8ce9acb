// Standard input without blocking.  Whole lines wait in a pending buffer,
// each ended by '@', the program's own line mark; a pipe's partial line is
// kept until its end arrives.
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console.h"
#include "protocol.h"

constexpr int PENDING_SIZE = 5000;
constexpr int LINE_LIMIT = 4992;
constexpr int READ_SIZE = 4998;
constexpr char LINE_MARK = '@';

static char pending[PENDING_SIZE];
static int pending_length;
static char assembled[LINE_LIMIT + 1];
static int assembled_length;
static int is_pipe = -1;
static bool input_closed;
bool end_of_input_quits = true;

// A line that would not fit whole is dropped rather than cut.
static void queue_line(const char *text, int length) {
    if (pending_length + length + 1 > LINE_LIMIT) return;
    std::memcpy(pending + pending_length, text, length);
    pending_length += length;
    pending[pending_length++] = LINE_MARK;
}

static bool input_waiting() {
    pollfd fd{0, POLLIN, 0};
    return poll(&fd, 1, 0) > 0 && (fd.revents & (POLLIN | POLLHUP | POLLERR));
}

// A terminal gives a whole line once one waits.
static void read_console() {
    char text[READ_SIZE + 1];
    if (!std::fgets(text, sizeof text, stdin)) {
        input_closed = true;
        return;
    }
    int length = static_cast<int>(std::strlen(text));
    // The line end gives way to the mark; an empty line is dropped.
    if (length > 1) queue_line(text, length - 1);
}

static void end_assembled_line() {
    if (assembled_length > 0) queue_line(assembled, assembled_length);
    assembled_length = 0;
}

static void read_pipe() {
    char text[READ_SIZE];
    ssize_t got = read(0, text, sizeof text);
    if (got <= 0) {
        // The front end has gone: what it sent last still counts.
        input_closed = true;
        end_assembled_line();
        return;
    }
    for (ssize_t i = 0; i < got; i++) {
        char c = text[i];
        if (c == '\n' || c == '\0')
            end_assembled_line();
        else if (c == LINE_MARK)
            end_assembled_line();  // the mark inside a line splits it
        else if (assembled_length < LINE_LIMIT)
            assembled[assembled_length++] = c;
    }
}

// Cuts the first whole line off the pending buffer into `line`.
static bool take_line(char *line) {
    char *mark =
        static_cast<char *>(std::memchr(pending, LINE_MARK, pending_length));
    if (!mark) return false;
    int length = static_cast<int>(mark - pending);
    std::memcpy(line, pending, length);
    line[length] = 0;
    pending_length -= length + 1;
    std::memmove(pending, mark + 1, pending_length);
    return true;
}

void poll_input() {
    // 1.
    if (is_pipe < 0) is_pipe = isatty(0) ? 0 : 1;
    // 2. - 4.
    if (!input_closed && input_waiting()) {
        is_pipe = isatty(0) ? 0 : 1;
        if (is_pipe)
            read_pipe();
        else
            read_console();
    }
    // 5.
    char line[PENDING_SIZE];
    if (!take_line(line)) {
        if (input_closed && end_of_input_quits) settings.quit = 1;
        return;
    }
    // 6.
    line[std::strcspn(line, "\r\n")] = 0;
    // 7.
    if (settings.uci_mode == 1 || std::strcmp(line, "uci") == 0)
        uci_command(line);
    else if (line[0])
        console_command(line);
}

bool wait_for_line(char *line, int size) {
    if (is_pipe < 0) is_pipe = isatty(0) ? 0 : 1;
    char text[PENDING_SIZE];
    for (;;) {
        // Lines already received come first.
        if (take_line(text)) {
            text[std::strcspn(text, "\r\n")] = 0;
            std::snprintf(line, static_cast<size_t>(size), "%s", text);
            return true;
        }
        if (input_closed) return false;
        pollfd fd{0, POLLIN, 0};
        int ready = poll(&fd, 1, -1);
        if (ready < 0 && errno != EINTR) input_closed = true;
        if (ready <= 0) continue;
        if (is_pipe)
            read_pipe();
        else
            read_console();
    }
}
