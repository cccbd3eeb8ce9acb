// Reading the fields of an EPD line.
#include <cctype>
#include <cstring>

#include "epd.h"

static bool line_end(char c) { return c == 0 || c == '\n' || c == '\r'; }

// Past the position: move counters, any number of them, are not opcodes.
static const char *skip_counters(const char *p) {
    while (std::isdigit(static_cast<unsigned char>(*p))) p++;
    while (*p == ' ' && std::isdigit(static_cast<unsigned char>(p[1]))) {
        p++;
        while (std::isdigit(static_cast<unsigned char>(*p))) p++;
    }
    return p;
}

static char *field_for(EpdFields &f, const char *name) {
    struct Slot {
        const char *name;
        char *value;
    };
    const Slot slots[] = {{"bm", f.bm}, {"am", f.am}, {"ce", f.ce},
                          {"sc", f.sc}, {"gr", f.gr}, {"id", f.id},
                          {"c0", f.c0}};
    for (const Slot &s : slots)
        if (!std::strcmp(name, s.name)) return s.value;
    return nullptr;
}

int epd_parse(const char *line, EpdFields &f) {
    std::memset(&f, 0, sizeof f);
    // 1. The position: up to the fourth blank, which is not kept.
    const char *p = line;
    int blanks = 0, n = 0;
    for (; !line_end(*p); p++) {
        if (*p == ' ' && ++blanks == 4) break;
        if (n < EPD_LINE_SIZE - 1) f.fen[n++] = *p;
    }
    if (*p != ' ') return 1;
    // 2. Skip the move counters
    p = skip_counters(p + 1);
    // 3. Opcodes, "name value;" each; blanks inside a value are dropped.
    for (;;) {
        while (*p == ' ') p++;
        char name[EPD_LINE_SIZE];
        int k = 0;
        while (*p != ' ' && !line_end(*p)) {
            if (k < EPD_LINE_SIZE - 1) name[k++] = *p;
            p++;
        }
        name[k] = 0;
        char value[EPD_LINE_SIZE];
        int v = 0;
        while (*p != ';' && !line_end(*p)) {
            if (*p != ' ' && v < EPD_LINE_SIZE - 1) value[v++] = *p;
            p++;
        }
        value[v] = 0;
        if (char *slot = field_for(f, name)) std::strcpy(slot, value);
        if ((k == 0 && v == 0) || *p != ';') return 1;
        p++;
    }
}
