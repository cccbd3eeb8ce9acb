// The folders of Source/ are a stack: each may include only the folders
// below it.  These tests read every #include line of the sources and name
// any that points up or sideways.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

// A folder's height in the stack; folders of equal height (eval, tablebase,
// book) may not include each other.  The entry files at the top of Source/
// stand above everything.
constexpr int ENTRY_HEIGHT = 6;
constexpr int UNKNOWN_FOLDER = -1;

int layer_height(const std::string &folder) {
    struct Layer {
        const char *folder;
        int height;
    };
    static const Layer STACK[] = {
        {"core", 0},      {"position", 1}, {"eval", 2},
        {"tablebase", 2}, {"book", 2},     {"search", 3},
        {"frontend", 4},  {"tools", 5},    {"", ENTRY_HEIGHT}};
    for (const Layer &layer : STACK)
        if (folder == layer.folder) return layer.height;
    return UNKNOWN_FOLDER;
}

// The top folder under Source/ of a path relative to Source/ ("" for the
// entry files).
std::string top_folder(const fs::path &relative) {
    auto first = relative.begin();
    if (std::next(first) == relative.end()) return "";
    return first->string();
}

// Where an included name leads: beside the including file first, then from
// the root of Source/.  Empty when it leads to no file of Source/ (a header
// made in the build folder, say).
fs::path resolve_include(const fs::path &source_root, const fs::path &file,
                         const std::string &name) {
    for (const fs::path &base : {file.parent_path(), source_root}) {
        fs::path candidate = (base / name).lexically_normal();
        if (fs::exists(candidate)) return candidate;
    }
    return {};
}

// "" when `file` (relative to Source/) may include `target`; otherwise
// why not.
std::string include_violation(const fs::path &file, const fs::path &target) {
    std::string from = top_folder(file), to = top_folder(target);
    if (from == to) return "";
    int from_height = layer_height(from), to_height = layer_height(to);
    if (from_height == UNKNOWN_FOLDER)
        return "folder '" + from + "' is not in the stack";
    if (to_height == UNKNOWN_FOLDER)
        return "folder '" + to + "' is not in the stack";
    if (to_height < from_height) return "";
    return to_height == from_height ? "includes sideways" : "includes upwards";
}

// The quoted names of a file's #include lines.
std::vector<std::string> quoted_includes(const fs::path &file) {
    std::vector<std::string> names;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, 8, "#include"))
            continue;
        size_t open = line.find('"', start);
        size_t close =
            open == std::string::npos ? open : line.find('"', open + 1);
        if (close != std::string::npos)
            names.push_back(line.substr(open + 1, close - open - 1));
    }
    return names;
}

bool is_source_file(const fs::path &path) {
    std::string ext = path.extension().string();
    return ext == ".cpp" || ext == ".h" || ext == ".in";
}

}  // namespace

TEST(IncludeLayers, TheStackOrdersTheFolders) {
    EXPECT_EQ(include_violation("search/root.cpp", "position/position.h"), "");
    EXPECT_EQ(include_violation("tools/tuner/self_play.cpp", "tools/bench.h"),
              "");
    EXPECT_EQ(include_violation("quillon.cpp", "frontend/protocol.h"), "");
    EXPECT_EQ(include_violation("position/legal.cpp", "search/search.h"),
              "includes upwards");
    EXPECT_EQ(include_violation("eval/pawns.cpp", "book/book.h"),
              "includes sideways");
    EXPECT_EQ(include_violation("core/output.cpp", "quillon.h"),
              "includes upwards");
    EXPECT_EQ(include_violation("misc/x.cpp", "core/types.h"),
              "folder 'misc' is not in the stack");
}

TEST(IncludeLayers, NoSourceIncludesUpOrSideways) {
    fs::path root = fs::path(QUILLON_TEST_DIR).parent_path() / "Source";
    ASSERT_TRUE(fs::is_directory(root)) << root;
    int files = 0;
    for (const auto &entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file() || !is_source_file(entry.path())) continue;
        files++;
        fs::path file = fs::relative(entry.path(), root);
        for (const std::string &name : quoted_includes(entry.path())) {
            fs::path target = resolve_include(root, entry.path(), name);
            if (target.empty()) continue;
            std::string why =
                include_violation(file, fs::relative(target, root));
            EXPECT_EQ(why, "")
                << "Source/" << file.string() << " includes \"" << name << "\"";
        }
    }
    EXPECT_GT(files, 100);
}
