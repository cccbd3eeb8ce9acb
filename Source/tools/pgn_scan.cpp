// Reading a PGN file of engine games: the tags that matter, each move's
// SAN and the score in the comment behind it.
//
// This reader is not the book builder's (-mkbook), on purpose: it reads
// lines of 255 characters, keeps the text of every comment for its score,
// takes a move from any letter outside a comment and knows nothing of
// variations; the builder reads lines of 1023 characters, splits braces
// and parentheses into tokens and drops whatever lies inside either.
#include <cstdlib>
#include <cstring>

#include "core/settings.h"
#include "core/status.h"
#include "pgn.h"
#include "position/notation.h"

constexpr int PGN_LINE_SIZE = 256;  // 255 characters and the terminator
constexpr int COMMENT_SIZE = 1024;
constexpr int FEN_SIZE = 128;

struct PgnScan {
    FILE *out;
    FILE *aux;
    int selector;
    // One slot more than a game holds: adding a move marks the slot after
    // it as having no comment yet.
    PgnMove moves[PGN_MAX_MOVES + 1];
    int count;
    int comment_depth;
    char comment[COMMENT_SIZE];
    int comment_length;
    char start_fen[FEN_SIZE];
    char result_text[16];
    char white[64];
    char black[64];
    int result;
    int skip;
    int fcp_format;
    int ngames;
    int npositions;
};

// The text between the first pair of quotes of a tag line.
static void quoted_value(const char *line, char *out, size_t size) {
    out[0] = 0;
    const char *open = std::strchr(line, '"');
    if (!open) return;
    const char *close = std::strchr(open + 1, '"');
    size_t n =
        close ? static_cast<size_t>(close - open - 1) : std::strlen(open + 1);
    if (n >= size) n = size - 1;
    std::memcpy(out, open + 1, n);
    out[n] = 0;
}

int pgn_comment_score(const char *text, int fcp_format, bool *from_white) {
    *from_white = false;
    // 1. A book move has no score
    if (std::strstr(text, "book")) return 0;
    // 2. An "eval" comment
    if (const char *eval = std::strstr(text, "eval ")) {
        char value[32];
        std::snprintf(value, sizeof value, "%s", eval + 5);
        if (char *comma = std::strchr(value, ',')) *comma = 0;
        if (!value[0]) return PGN_UNREADABLE;
        *from_white = fcp_format != 0;
        return std::atoi(value);
    }
    // 3. The token before the first "/": "+1.25/18 3.2s".
    const char *slash = std::strchr(text, '/');
    if (!slash) return PGN_UNREADABLE;
    const char *start = slash;
    while (start > text && start[-1] != ' ') start--;
    char token[32];
    size_t n = static_cast<size_t>(slash - start);
    if (n >= sizeof token) n = sizeof token - 1;
    std::memcpy(token, start, n);
    token[n] = 0;
    if (n < 3) return PGN_UNREADABLE;
    // The file's scores are from the mover's view, except in the format
    // the Site tag names, whose scores are from White's.
    *from_white = fcp_format != 0;
    if (std::strstr(token, "-M")) return PGN_MATED;
    if (std::strstr(token, "+M")) return PGN_MATES;
    return static_cast<int>(std::atof(token) * 100);
}

// A complete comment scores the last move read.
static void finish_comment(PgnScan &s) {
    s.comment[s.comment_length] = 0;
    bool from_white = false;
    int value = pgn_comment_score(s.comment, s.fcp_format, &from_white);
    // 4. After an even count Black moved last: White's view is negated.
    if (from_white && s.count % 2 == 0) value = -value;
    // 5. A comment before any move scores nothing
    if (s.count == 0) {
        s.comment_depth = 0;
        return;
    }
    s.moves[s.count - 1].score = static_cast<i16>(value);
}

static void add_move(PgnScan &s, const char *token, size_t length) {
    if (s.count >= PGN_MAX_MOVES) return;
    PgnMove &m = s.moves[s.count];
    if (length >= sizeof m.text) length = sizeof m.text - 1;
    std::memcpy(m.text, token, length);
    m.text[length] = 0;
    s.moves[s.count + 1].score = PGN_NO_COMMENT;
    s.count++;
    s.comment_length = 0;
}

static void append_comment(PgnScan &s, char c) {
    if (s.comment_length < COMMENT_SIZE - 1)
        s.comment[s.comment_length++] = c == '\n' ? ' ' : c;
}

static bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Step 4: movetext, with comments that may run over lines.
static void read_movetext(PgnScan &s, const char *line) {
    for (const char *c = line; *c; c++) {
        if (*c == '{') {
            s.comment_depth++;
        } else if (*c == '}') {
            if (--s.comment_depth == 0) finish_comment(s);
            if (s.comment_depth < 0) s.comment_depth = 0;
        } else if (s.comment_depth > 0) {
            append_comment(s, *c);
        } else if (is_letter(*c)) {
            const char *end = c;
            while (*end && *end != ' ' && *end != '\n') end++;
            add_move(s, c, static_cast<size_t>(end - c));
            c = end - 1;
        }
    }
}

static void emit_game(PgnScan &s) {
    int written = 0;
    pgn_emit(s.out, s.aux, s.moves, s.count, s.start_fen, s.selector, s.result,
             &written);
    s.npositions += written;
    s.count = 0;
    s.comment_depth = 0;
}

static void read_result(PgnScan &s, const char *line) {
    quoted_value(line, s.result_text, sizeof s.result_text);
    if (!std::strcmp(s.result_text, "1-0"))
        s.result = PGN_WHITE_WON;
    else if (!std::strcmp(s.result_text, "0-1"))
        s.result = PGN_BLACK_WON;
    else
        s.result = PGN_OTHER_RESULT;
    if (s.skip) return;
    if (++s.ngames % 100 == 0) std::printf("game %d\n", s.ngames);
}

// Step 3: a tag line ends the game held before it.
static void read_tag(PgnScan &s, const char *line) {
    if (s.count) emit_game(s);
    if (s.selector == 1) {
        std::fputs(line, s.out);
        if (std::strstr(line, "Round "))
            std::fprintf(s.out, "[Tag \"game_%d\"]\n", s.ngames);
    }
    if (std::strstr(line, "Event ")) {
        s.result_text[0] = s.start_fen[0] = 0;
        s.skip = 0;
    } else if (std::strstr(line, "White ")) {
        quoted_value(line, s.white, sizeof s.white);
        s.result_text[0] = s.start_fen[0] = 0;
    } else if (std::strstr(line, "Black ")) {
        quoted_value(line, s.black, sizeof s.black);
    } else if (std::strstr(line, "Result ")) {
        read_result(s, line);
    } else if (std::strstr(line, "FEN ")) {
        quoted_value(line, s.start_fen, sizeof s.start_fen);
    } else if (std::strstr(line, "Site ") && std::strstr(line, "fcp-tourney")) {
        s.fcp_format = 1;
    } else if (std::strstr(line, "unterminated") ||
               std::strstr(line, "time forfeit") ||
               std::strstr(line, "abandoned")) {
        // Termination in practice: such a game is not used.
        s.skip = 1;
    }
}

static bool open_files(PgnScan &s, FILE *&in) {
    in = std::fopen(settings.input_file2, "r");
    s.out = std::fopen(settings.output_file, "w");
    s.aux = std::fopen("tmpX.epd", "w");
    if (in && s.out && s.aux) return true;
    if (in) std::fclose(in);
    if (s.out) std::fclose(s.out);
    if (s.aux) std::fclose(s.aux);
    return false;
}

// Closes the three files; false when the input failed to read or an
// output failed to write.
static bool close_files(PgnScan &s, FILE *in) {
    bool ok = !std::ferror(in);
    std::fclose(in);
    for (FILE *f : {s.out, s.aux}) {
        bool failed = std::ferror(f) != 0;
        if (std::fclose(f) != 0 || failed) ok = false;
    }
    return ok;
}

bool pgn_scan(int selector) {
    // 1. The output's default name; open the files
    if (!settings.output_file[0])
        std::snprintf(settings.output_file, sizeof settings.output_file,
                      "tmp.epd");
    auto *s = static_cast<PgnScan *>(std::calloc(1, sizeof(PgnScan)));
    if (!s) return false;
    FILE *in = nullptr;
    if (!open_files(*s, in)) {
        std::free(s);
        return false;
    }
    settings.log = 0;
    s->selector = selector;
    s->moves[0].score = PGN_FIRST_UNSET;
    // 2-4. Tags and movetext, line by line
    char line[PGN_LINE_SIZE];
    while (std::fgets(line, sizeof line, in)) {
        if (line[0] == '[' && line[1] != '%')
            read_tag(*s, line);
        else if (!s->skip && s->count <= PGN_MAX_MOVES - 1 && line[0])
            read_movetext(*s, line);
    }
    // 5. The last game
    if (s->count) emit_game(*s);
    std::fputs("\n", s->out);
    bool ok = close_files(*s, in);
    std::printf("games= %d, positions= %d\n", s->ngames, s->npositions);
    std::free(s);
    return ok;
}
