// Files, directories, commands and libraries: the functions that decide something.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>

#include "file_util.h"
#include "support/support.hpp"

namespace fs = std::filesystem;
using support::read_file;
using support::write_file;

namespace {

class Files : public ::testing::Test {
protected:
    [[nodiscard]] std::string at(std::string_view name) const { return dir_.file(name); }
    support::TempDir dir_;
};

TEST_F(Files, OpenModes) {
    write_file(at("f"), "old");
    struct {
        int (*open)(const char*);
        std::string wanted;
    } const cases[] = {
        {[](const char* path) { return FileOpen2(path, 0); }, "oldXY"},
        {[](const char* path) { return FileOpen(path); }, "XYdXY"},
        {[](const char* path) { return FileOpen2(path, 1); }, "XY"},
        {[](const char* path) { return FileOpenRead(path); }, "XY"},
    };
    for (const auto& c : cases) {
        const int fd = c.open(at("f").c_str());
        EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        FileWrite(fd, "XY", 2);
        EXPECT_EQ(FileClose(fd), 0);
        EXPECT_EQ(read_file(at("f")), c.wanted);
    }
    const int fd = FileOpen(at("new").c_str());
    EXPECT_EQ(FileSeek(fd, 5, SEEK_END), 5);
    EXPECT_EQ(FileWrite(fd, "z", 1), 1);
    EXPECT_EQ(FileSize(fd), 6);
    EXPECT_EQ(::ftruncate64(fd, off64_t{5} << 30), 0);
    EXPECT_EQ(FileSize(fd), INT_MAX);
    EXPECT_EQ(FileSize_Name(at("new").c_str()), INT_MAX);
    EXPECT_EQ(FileSize_Name(dir_.path().c_str()), -1);
    FileClose(fd);
    EXPECT_EQ(FileClose(fd), -1);
    EXPECT_EQ(GetErrorCode(), EBADF);
}

TEST_F(Files, NullAndMissingPathsFail) {
    struct stat status {};
    EXPECT_EQ(FileOpen(nullptr), -1);
    EXPECT_EQ(GetErrorCode(), EFAULT);
    const char* const missing = "/nowhere/x";
    const std::string too_long(PATH_MAX - 3, 'x');
    EXPECT_EQ(FileOpenRead(missing) & FileOpen2(nullptr, 0) & FileDelete(nullptr) &
                  FileDelete(missing) & FileSize_Name(nullptr) & FileStat(nullptr, &status) &
                  FileStat("/", nullptr) & FileBackUp(nullptr) & FileBackUp(too_long.c_str()) &
                  FileCopy(nullptr, "/", "x", nullptr) & RenameFile(nullptr, "x") &
                  DirectryMake(nullptr) & DirectryClose(nullptr) & ExecCommand(nullptr) &
                  CheckString_NotUpLow("a", nullptr) & DLLClose(nullptr) &
                  FileRead(-1, nullptr, 1) & FileSize(-1),
              -1);  // each of them
    EXPECT_EQ(DirectryOpen(nullptr), nullptr);
    EXPECT_EQ(DirectryRead(nullptr, nullptr), nullptr);
}

TEST_F(Files, RenameAlwaysTakesTheOldName) {
    write_file(at("a"), "1");
    EXPECT_EQ(RenameFile(at("a").c_str(), at("b").c_str()), 0);
    EXPECT_EQ(read_file(at("b")), "1");
    EXPECT_EQ(RenameFile(at("b").c_str(), at("no/such").c_str()), -1);
    EXPECT_EQ(GetErrorCode(), ENOENT);
    EXPECT_FALSE(fs::exists(at("b")));
    write_file(at("a"), "1");
    EXPECT_EQ(RenameFile(dir_.path().c_str(), at("a").c_str()), -1);
    EXPECT_EQ(GetErrorCode(), EINVAL);  // that of the rename
    EXPECT_EQ(RenameFile(at("a").c_str(), at("a").c_str()), 0);
    EXPECT_FALSE(fs::exists(at("a")));
}

TEST_F(Files, CopyKeepsABackUpAndTheAttributes) {
    EXPECT_EQ(FileCopy(dir_.path().c_str(), at("to").c_str(), "missing", nullptr), 0);
    EXPECT_FALSE(fs::exists(at("to")));

    const std::string content(100000, 'c');
    write_file(at("a"), content);
    ::chmod(at("a").c_str(), 04750);
    const timespec times[] = {{1000, 5}, {2000, 7}};
    ::utimensat(AT_FDCWD, at("a").c_str(), times, 0);
    const int owned = ::chown(at("a").c_str(), 12, 34);
    ::chmod(at("a").c_str(), 04750);
    ASSERT_EQ(FileCopy(dir_.path().c_str(), at("to").c_str(), "a", nullptr), 0);
    struct stat copy {};
    FileStat(at("to/a").c_str(), &copy);
    EXPECT_EQ(copy.st_mode & 07777, 04750u);
    EXPECT_EQ(copy.st_atime, 1000);
    EXPECT_EQ(copy.st_mtime, 2000);
    EXPECT_TRUE(owned != 0 || copy.st_uid == 12);
    EXPECT_EQ(read_file(at("to/a")), content);
    EXPECT_FALSE(fs::exists(at("to/a.bak")));

    write_file(at("to/c"), "previous");
    write_file(at("to/c.bak"), "older");
    ASSERT_EQ(FileCopy(dir_.path().c_str(), at("to").c_str(), "a", "c"), 0);
    EXPECT_EQ(read_file(at("to/c.bak")), "previous");
    EXPECT_EQ(read_file(at("to/c")), content);

    if (owned == 0) {  // who cannot give the copy away does not hand on the owner's rights
        fs::permissions(dir_.path(), fs::perms::all);
        fs::permissions(at("to"), fs::perms::all);
        ::chmod(at("a").c_str(), 06755);
        ASSERT_EQ(::seteuid(65534), 0);
        EXPECT_EQ(FileCopy(dir_.path().c_str(), at("to").c_str(), "a", "d"), 0);
        ASSERT_EQ(::seteuid(0), 0);
        FileStat(at("to/d").c_str(), &copy);
        EXPECT_EQ(copy.st_mode & 07777, 0755u);
        ::chmod(at("a").c_str(), 04750);
    }

    EXPECT_EQ(FileCopy(dir_.path().c_str(), at("no/where").c_str(), "a", nullptr), -1);
    EXPECT_EQ(FileCopy(at("a").c_str(), dir_.path().c_str(), "a", nullptr), -1);  // ENOTDIR
    EXPECT_EQ(FileCopy(dir_.path().c_str(), dir_.path().c_str(), "a", nullptr), -1);
    EXPECT_EQ(read_file(at("a.bak")), content);  // onto itself: found under the back-up name
}

TEST_F(Files, DirectoriesAreReadAndMade) {
    const int made = DirectryMake(at("d").c_str());
    struct stat status {};
    FileStat(at("d").c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0755u);
    EXPECT_EQ(made, ::geteuid() == 0 && status.st_gid == 3 ? 0 : 1);
    EXPECT_EQ(DirectryMake(at("d").c_str()), -1);
    EXPECT_EQ(DirectryMake(at("x/y").c_str()), -1);

    const std::string longest(255, 'n');
    write_file(at("d/" + longest), "");
    write_file(at("d/b"), "");
    DIR* const stream = DirectryOpen(at("d").c_str());
    std::set<std::string> names;
    dirent entry{};
    while (DirectryRead(stream, &entry) == &entry) names.insert(entry.d_name);
    EXPECT_EQ(names, (std::set<std::string>{".", "..", "b", longest}));
    EXPECT_EQ(DirectryClose(stream), 0);
    EXPECT_EQ(DirectryOpen(at("none").c_str()), nullptr);
}

TEST_F(Files, TreesGoDownToTheLimit) {
    struct {
        const char *name, *directories, *file;  // made below "t"
        int limit, wanted;
        const char* left;  // a path that must still be there, or null: nothing is
    } const cases[] = {
        {"missing", nullptr, nullptr, 1, 0, nullptr},
        {"limit 0", "", "f", 0, -1, "t/f"},
        {"flat", "", "f", 1, 0, nullptr},
        {"deep enough", "a/b", "a/b/f", 3, 0, nullptr},
        {"empty but too deep", "a", "f", 1, 0, nullptr},
        {"too deep", "a/b", "a/b/f", 2, -1, "t/a/b/f"},
        {"a file", nullptr, "", 5, -2, "t"},
    };
    for (const auto& c : cases) {
        fs::remove_all(at("t"));
        if (c.directories != nullptr) fs::create_directories(at("t/") + c.directories);
        if (c.file != nullptr) write_file(*c.file != '\0' ? at("t/") + c.file : at("t"), "");
        EXPECT_EQ(ExecDelDir(at("t").c_str(), c.limit), c.wanted) << c.name;
        EXPECT_TRUE(c.left == nullptr ? !fs::exists(at("t")) : fs::exists(at(c.left))) << c.name;
    }
    // Files of the top level go whatever the order of the entries.
    fs::create_directories(at("top/a/b"));
    for (char name = 'b'; name < 'z'; ++name) write_file(at("top/") + name, "");
    EXPECT_EQ(ExecDelDir(at("top").c_str(), 1), -1);
    EXPECT_EQ(std::distance(fs::directory_iterator(at("top")), {}), 1);
    // A link to a directory is followed; it is then no directory to be removed itself.
    fs::create_directories(at("target/sub"));
    fs::create_directories(at("links"));
    write_file(at("target/f"), "");
    fs::create_symlink(at("target"), at("links/l"));
    fs::create_symlink(at("nowhere"), at("links/dangling"));
    EXPECT_EQ(ExecDelDir(at("links").c_str(), 9), -2);
    EXPECT_TRUE(fs::is_empty(at("target")));
    EXPECT_FALSE(fs::is_symlink(at("links/dangling")));
    EXPECT_EQ(ExecDelDir(nullptr, 1), -2);
}

TEST_F(Files, CommandsAndLibraries) {
    EXPECT_EQ(ExecCommand(("echo ran > " + at("out")).c_str()), 0);
    EXPECT_EQ(read_file(at("out")), "ran\n");
    EXPECT_EQ(ExecCommand("exit 127"), 0);  // only a raw status of 127 counts
    EXPECT_EQ(ExecCommand("exit 1"), 0);

    EXPECT_EQ(DLLOpen(at("none.so").c_str()), nullptr);
    void* const library = DLLOpen("libm.so.6");
    auto* const cosine = reinterpret_cast<double (*)(double)>(DLLGetProcAddress(library, "cos"));
    ASSERT_NE(cosine, nullptr);
    EXPECT_EQ(cosine(0.0), 1.0);
    EXPECT_EQ(DLLGetProcAddress(library, "no_such_symbol"), nullptr);
    EXPECT_EQ(DLLGetProcAddress(library, nullptr), nullptr);
    EXPECT_EQ(DLLClose(library), 0);

    EXPECT_EQ(CheckString_NotUpLow("root", "ROOT"), 0);
    EXPECT_EQ(CheckString_NotUpLow("root", "roots"), -1);
    EXPECT_EQ(CheckString_NotUpLow("", ""), 0);
    EXPECT_EQ(CheckString_NotUpLow("\xc4", "\xe4"), -1);  // C locale: no letters
}

}  // namespace
