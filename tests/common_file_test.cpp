// Files, directories, commands and libraries: the functions that decide something.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <set>

#include "file_util.h"
#include "support/support.hpp"

namespace fs = std::filesystem;
using support::read_file;
using support::write_file;

namespace {

// In a directory of its own, and without a mask for the modes of new files.
class Files : public ::testing::Test {
protected:
    Files() {
        fs::current_path(dir_.path());
        ::umask(0);
    }
    ~Files() override { fs::current_path("/"); }
    static struct stat status(const char* path) {
        struct stat found {};
        EXPECT_EQ(FileStat(path, &found), 0);
        return found;
    }
    support::TempDir dir_;
};

TEST_F(Files, OpenModes) {
    struct {
        int (*open)(const char*);
        const char* wanted;  // of "old", "XY" written
        int written;
    } const cases[] = {
        {[](const char* path) { return FileOpen2(path, 0); }, "oldXY", 2},
        {[](const char* path) { return FileOpen2(path, 1); }, "XY", 2},
        {[](const char* path) { return FileOpen(path); }, "XYd", 2},
        {[](const char* path) { return FileOpenRead(path); }, "old", -1},
    };
    for (const auto& c : cases) {
        write_file("f", "old");
        const int fd = c.open("f");
        EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        EXPECT_EQ(FileWrite(fd, "XY", 2), c.written);
        EXPECT_EQ(FileClose(fd), 0);
        EXPECT_EQ(read_file("f"), c.wanted);
    }
    const int fd = FileOpen("new");
    EXPECT_EQ(status("new").st_mode & 07777, 0644U);
    EXPECT_EQ(FileSeek(fd, 5, SEEK_END), 5);
    EXPECT_EQ(FileWrite(fd, "z", 1), 1);
    EXPECT_EQ(FileSize(fd), 6);
    EXPECT_EQ(::ftruncate64(fd, off64_t{5} << 30), 0);
    EXPECT_EQ(FileSize(fd), INT_MAX);
    EXPECT_EQ(FileSize_Name("new"), INT_MAX);
    FileClose(fd);
}

TEST_F(Files, NullAndMissingPathsFail) {
    for (const char* path : {static_cast<const char*>(nullptr), "x/y"}) {
        for (auto* function : {FileOpen, FileOpenRead, FileDelete, FileSize_Name, DirectryMake}) {
            EXPECT_EQ(function(path), -1);
            EXPECT_EQ(GetErrorCode(), path == nullptr ? EFAULT : ENOENT);
        }
    }
    struct stat unused {};
    const std::string too_long(PATH_MAX - 3, 'x');
    for (const int result :
         {FileOpen2(nullptr, 0), FileSize_Name("/"), FileStat(nullptr, &unused),
          FileStat("/", nullptr), FileBackUp(nullptr), FileBackUp(too_long.c_str()),
          FileCopy(nullptr, "/", "x", nullptr), RenameFile(nullptr, "x"), DirectryClose(nullptr),
          ExecDelDir(nullptr, 1) + 1, ExecCommand(nullptr), CheckString_NotUpLow("a", nullptr),
          DLLClose(nullptr), FileRead(-1, nullptr, 1), FileSize(-1), FileClose(-1)})
        EXPECT_EQ(result, -1);
    EXPECT_TRUE(DirectryOpen(nullptr) == nullptr && DirectryRead(nullptr, nullptr) == nullptr);
}

TEST_F(Files, RenameAlwaysTakesTheOldName) {
    fs::create_directory("d");
    for (const auto& [to, error] : {std::pair{"b", 0}, {"no/such", ENOENT}, {"d", EISDIR}}) {
        write_file("a", "1");
        EXPECT_EQ(RenameFile("a", to), error == 0 ? 0 : -1) << to;
        EXPECT_TRUE(error == 0 || GetErrorCode() == error) << to;
        EXPECT_FALSE(fs::exists("a")) << to;
    }
    EXPECT_EQ(RenameFile("b", "b"), 0);
    EXPECT_FALSE(fs::exists("b"));
}

TEST_F(Files, CopyKeepsABackUpAndTheAttributes) {
    EXPECT_EQ(FileCopy(".", "to", "missing", nullptr), 0);
    EXPECT_FALSE(fs::exists("to"));

    const std::string content(100000, 'c');
    write_file("a", content);
    const int owned = ::chown("a", 12, 34);
    ::chmod("a", 06755);
    const timespec times[] = {{1000, 5}, {2000, 7}};
    ::utimensat(AT_FDCWD, "a", times, 0);
    ASSERT_EQ(FileCopy(".", "to", "a", nullptr), 0);
    const struct stat made = status("to/a");
    EXPECT_EQ(made.st_mode & 07777, 06755U);
    EXPECT_EQ(made.st_atime, 1000);
    EXPECT_EQ(made.st_mtime, 2000);
    EXPECT_TRUE(owned != 0 || made.st_uid == 12);
    EXPECT_FALSE(fs::exists("to/a.bak"));

    write_file("to/c", "previous");
    write_file("to/c.bak", "older");
    ASSERT_EQ(FileCopy(".", "to", "a", "c"), 0);
    EXPECT_EQ(read_file("to/c.bak"), "previous");
    EXPECT_EQ(read_file("to/c"), content);

    if (owned == 0) {  // who cannot give the copy away does not hand on the owner's rights
        for (const char* open : {".", "to"}) fs::permissions(open, fs::perms::all);
        ASSERT_EQ(::seteuid(65534), 0);
        EXPECT_EQ(FileCopy(".", "to", "a", "d"), 0);
        ASSERT_EQ(::seteuid(0), 0);
        EXPECT_EQ(status("to/d").st_mode & 07777, 0755U);
    }
    for (const char* target : {"no/where", "a", "."})  // cannot be made, is a file, onto itself
        EXPECT_EQ(FileCopy(".", target, "a", nullptr), -1);
    EXPECT_EQ(read_file("a.bak"), content);  // found under the back-up name
}

TEST_F(Files, DirectoriesAreReadAndMade) {
    const int made = DirectryMake("d");
    const struct stat found = status("d");
    EXPECT_EQ(found.st_mode & 07777, 0755U);
    EXPECT_EQ(made, ::geteuid() == 0 && found.st_gid == 3 ? 0 : 1);
    const std::string longest(255, 'n');
    write_file("d/" + longest, "");
    DIR* const stream = DirectryOpen("d");
    std::set<std::string> names;
    dirent entry{};
    while (DirectryRead(stream, &entry) == &entry) names.insert(entry.d_name);
    EXPECT_EQ(names, (std::set<std::string>{".", "..", longest}));
    EXPECT_EQ(DirectryClose(stream), 0);
}

TEST_F(Files, TreesGoDownToTheLimit) {
    const struct {
        std::string file;  // below "t", with its directories
        int limit, wanted;
    } cases[] = {{"f", 0, -1}, {"f", 1, 0}, {"a/b/f", 3, 0}, {"a/", 1, 0}, {"a/b/f", 2, -1}};
    for (const auto& c : cases) {
        fs::create_directories(fs::path("t/" + c.file).parent_path());
        write_file("t/" + c.file, "");
        EXPECT_EQ(ExecDelDir("t", c.limit), c.wanted) << c.file << c.limit;
        EXPECT_TRUE(fs::exists(c.wanted == 0 ? "." : "t/" + c.file)) << c.file << c.limit;
        EXPECT_EQ(fs::exists("t"), c.wanted != 0) << c.file << c.limit;
    }
    EXPECT_EQ(ExecDelDir("missing", 1), 0);
    // Files of the top level go whatever the order of the entries.
    for (char name = 'b'; name < 'z'; ++name) write_file(std::string("t/") + name, "");
    EXPECT_EQ(ExecDelDir("t", 1), -1);
    EXPECT_EQ(std::distance(fs::directory_iterator("t"), {}), 1);
    // A link to a directory is followed; it is then no directory to be removed itself.
    fs::create_directories("links");
    fs::create_symlink("../t", "links/l");
    fs::create_symlink("nowhere", "links/dangling");
    EXPECT_EQ(ExecDelDir("links", 9), -2);
    EXPECT_TRUE(fs::is_empty("t"));
    EXPECT_FALSE(fs::is_symlink("links/dangling"));
    write_file("f", "");
    EXPECT_EQ(ExecDelDir("f", 5), -2);
    EXPECT_TRUE(fs::exists("f"));
}

TEST_F(Files, CommandsAndLibraries) {
    EXPECT_EQ(ExecCommand("echo ran > out"), 0);
    EXPECT_EQ(read_file("out"), "ran\n");
    EXPECT_EQ(ExecCommand("exit 127"), 0);  // only a raw status of 127 counts

    EXPECT_EQ(DLLOpen("./none.so"), nullptr);
    void* const library = DLLOpen("libm.so.6");
    auto* const cosine = reinterpret_cast<double (*)(double)>(DLLGetProcAddress(library, "cos"));
    ASSERT_NE(cosine, nullptr);
    EXPECT_EQ(cosine(0.0), 1.0);
    EXPECT_EQ(DLLGetProcAddress(library, nullptr), nullptr);
    EXPECT_EQ(DLLClose(library), 0);

    EXPECT_EQ(CheckString_NotUpLow("root", "ROOT"), 0);
    EXPECT_EQ(CheckString_NotUpLow("root", "roots"), -1);
    EXPECT_EQ(CheckString_NotUpLow("\xc4", "\xe4"), -1);  // C locale: no letters
}

}  // namespace
