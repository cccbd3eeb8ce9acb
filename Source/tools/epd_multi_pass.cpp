// -mkbook2: repeated EPD analysis, each pass reading the positions the
// previous one reached through its best lines.
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "core/output.h"
#include "core/settings.h"
#include "core/status.h"
#include "epd.h"

// A failed copy is silent: the next pass reads the old file.
static bool copy_file(const char *from, const char *to) {
    char text[400];
    std::snprintf(text, sizeof text, "copy %s %s", from, to);
    print_line(text);
    std::error_code error;
    std::filesystem::copy_file(
        from, to, std::filesystem::copy_options::overwrite_existing, error);
    return !error;
}

bool epd_multi_pass(const char *path) {
    // Ever fewer lines per position as the tree widens.
    static constexpr u8 LINES_PER_PASS[10] = {6, 5, 4, 4, 3, 3, 3, 3, 3, 3};
    // The passes run whatever happens, as they always did; a failure only
    // decides the result.
    bool ok = copy_file(path, "tmp_1.epd");
    for (u8 lines : LINES_PER_PASS) {
        settings.multi_pv = lines;
        ok = epd_analyze("tmp_1.epd", 1) && ok;
        ok = copy_file("tmp_0.epd", "tmp_1.epd") && ok;
    }
    return ok;
}
