// Standard input without blocking.  Whole lines wait in a pending buffer,
// each ended by '@', the program's own line mark, and behind them the
// start of a line whose end has not come yet.
//
// Nothing is ever dropped.  A read never asks for more than the buffer has
// room for: what does not fit waits in the pipe until lines have been
// taken.  A line longer than the whole buffer moves, piece by piece, to a
// store on the heap of its own, and is handed on whole once its end comes.
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "console.h"
#include "protocol.h"

constexpr int PENDING_SIZE = 5000;
constexpr char LINE_MARK = '@';

static char pending[PENDING_SIZE];
static int pending_length;
// The head of a line too long for the pending buffer; its rest is at the
// front of `pending`.
static char *long_head;
static size_t long_length;
static size_t long_capacity;
static int is_pipe = -1;
static bool input_closed;
bool end_of_input_quits = true;

// A failed allocation during play ends the process, as everywhere else.
static void *grow(void *block, size_t bytes) {
    void *grown = std::realloc(block, bytes);
    if (!grown) std::exit(-1);
    return grown;
}

static void keep_in_long_head(const char *text, size_t length) {
    if (long_length + length + 1 > long_capacity) {
        size_t capacity = long_capacity ? long_capacity : PENDING_SIZE;
        while (capacity < long_length + length + 1) capacity *= 2;
        long_head = static_cast<char *>(grow(long_head, capacity));
        long_capacity = capacity;
    }
    std::memcpy(long_head + long_length, text, length);
    long_length += length;
}

// A buffer filled by one unfinished line makes room by moving that line
// to the long head.
static void make_room() {
    if (pending_length < PENDING_SIZE) return;
    if (std::memchr(pending, LINE_MARK, pending_length)) return;
    keep_in_long_head(pending, static_cast<size_t>(pending_length));
    pending_length = 0;
}

// Whether the line being assembled at the end of the buffer is empty.
static bool line_is_empty() {
    if (pending_length > 0) return pending[pending_length - 1] == LINE_MARK;
    return long_length == 0;
}

// Line feed and NUL end a line, and so does the mark itself inside one.
// An empty line adds nothing.
static void take_in(const char *text, int length) {
    for (int i = 0; i < length; i++) {
        char c = text[i];
        if (c == '\n' || c == '\0' || c == LINE_MARK) {
            if (!line_is_empty()) pending[pending_length++] = LINE_MARK;
        } else {
            pending[pending_length++] = c;
        }
    }
}

// The front end has gone: what it sent last still counts.
static void end_of_input() {
    input_closed = true;
    make_room();
    if (!line_is_empty()) pending[pending_length++] = LINE_MARK;
}

static bool input_waiting() {
    pollfd fd{0, POLLIN, 0};
    return poll(&fd, 1, 0) > 0 && (fd.revents & (POLLIN | POLLHUP | POLLERR));
}

// One read of at most the room left.  A terminal gives a line at a time
// and a pipe what it holds; both are read the same way, with no stdio
// buffer between that could hold lines the poll does not see.
static void read_input() {
    make_room();
    int room = PENDING_SIZE - pending_length;
    if (room == 0) return;  // whole lines wait: the rest stays in the pipe
    char text[PENDING_SIZE];
    ssize_t got = read(0, text, static_cast<size_t>(room));
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (got <= 0) return end_of_input();
    take_in(text, static_cast<int>(got));
}

// Whether a read could take anything now.
static bool has_room() {
    return pending_length < PENDING_SIZE ||
           !std::memchr(pending, LINE_MARK, pending_length);
}

// A line handed on: in `small` when it came whole from the pending buffer,
// else on the heap.
struct TakenLine {
    char *text;
    bool on_heap;
};

// Cuts the first whole line off the input.  False when none is complete.
static bool take_line(char (&small)[PENDING_SIZE], TakenLine &line) {
    char *mark =
        static_cast<char *>(std::memchr(pending, LINE_MARK, pending_length));
    if (!mark) return false;
    int length = static_cast<int>(mark - pending);
    if (long_length == 0) {
        std::memcpy(small, pending, length);
        small[length] = 0;
        line = {small, false};
    } else {
        keep_in_long_head(pending, static_cast<size_t>(length));
        long_head[long_length] = 0;
        line = {long_head, true};
        // The line now belongs to the caller.
        long_head = nullptr;
        long_length = long_capacity = 0;
    }
    pending_length -= length + 1;
    std::memmove(pending, mark + 1, pending_length);
    return true;
}

static void release(TakenLine &line) {
    if (line.on_heap) std::free(line.text);
    line = {nullptr, false};
}

void poll_input() {
    // 1. Is the input a pipe or a terminal?
    if (is_pipe < 0) is_pipe = isatty(0) ? 0 : 1;
    // 2. - 4. Read what is waiting, while there is room
    if (!input_closed && has_room() && input_waiting()) {
        is_pipe = isatty(0) ? 0 : 1;
        read_input();
    }
    // 5. Take a whole line; a closed input may quit
    char small[PENDING_SIZE];
    TakenLine taken{nullptr, false};
    if (!take_line(small, taken)) {
        if (input_closed && end_of_input_quits) settings.quit = 1;
        return;
    }
    char *line = taken.text;
    // 6. Cut the line end
    line[std::strcspn(line, "\r\n")] = 0;
    // 7. To the UCI or the console interpreter
    if (settings.uci_mode == 1 || std::strcmp(line, "uci") == 0)
        uci_command(line);
    else if (line[0])
        console_command(line);
    release(taken);
}

bool wait_for_line(char *line, int size) {
    if (is_pipe < 0) is_pipe = isatty(0) ? 0 : 1;
    char small[PENDING_SIZE];
    for (;;) {
        // Lines already received come first.
        TakenLine taken{nullptr, false};
        if (take_line(small, taken)) {
            char *text = taken.text;
            text[std::strcspn(text, "\r\n")] = 0;
            std::snprintf(line, static_cast<size_t>(size), "%s", text);
            release(taken);
            return true;
        }
        if (input_closed) return false;
        pollfd fd{0, POLLIN, 0};
        int ready = poll(&fd, 1, -1);
        if (ready < 0 && errno != EINTR) input_closed = true;
        if (ready <= 0) continue;
        read_input();
    }
}
