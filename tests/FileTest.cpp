#include "HVX/Base/Error.h"
#include "HVX/Filesystem/File.h"
#include "HVX/Filesystem/Filesystem.h"
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace nrq {
namespace {

std::string Message(const std::function<void()>& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.what();
    }
    return "(no error)";
}

// Drops the "(line) " in front of an Error's text.
std::string WithoutLine(const std::string& what) {
    const size_t close = what.find(") ");
    return what.front() == '(' && close != std::string::npos ? what.substr(close + 2) : what;
}

class FileTest : public ::testing::Test {
protected:
    std::filesystem::path dir = test::MakeTempDir("file");
    std::string PathOf(const std::string& name) const { return (dir / name).string(); }
};

TEST_F(FileTest, ModeNoneIsRejectedWithTheModeNumber) {
    File file(PathOf("a"));
    EXPECT_EQ(WithoutLine(Message([&] { file.Open(FileMode::None); })), "invalid file mode (3)");
    EXPECT_FALSE(file.IsOpen());
}

TEST_F(FileTest, FreshFileIsClosedWithModeNone) {
    const File file(PathOf("a"));
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.GetFileMode(), FileMode::None);
    EXPECT_EQ(file.GetFileName(), PathOf("a"));
}

TEST_F(FileTest, ReadZeroReadsWhatRemains) {
    test::WriteFileBytes(PathOf("r"), "hello world");
    File file(PathOf("r"), FileMode::Read);
    EXPECT_EQ(file.GetFileMode(), FileMode::Read);
    EXPECT_EQ(file.Read(0), "hello world");
    EXPECT_TRUE(file.ReachedEOF());
    EXPECT_EQ(file.Read(0), "");
    file.SetPosition(6);
    EXPECT_EQ(file.GetPosition(), 6u);
    EXPECT_EQ(file.Read(0), "world");
}

TEST_F(FileTest, ReadIntoBufferCountsBytes) {
    test::WriteFileBytes(PathOf("r"), "abcdef");
    File file(PathOf("r"), FileMode::Read);
    char buffer[4] = {};
    EXPECT_EQ(file.Read(buffer, 4), 4u);
    EXPECT_EQ(std::string(buffer, 4), "abcd");
    EXPECT_EQ(file.Read(5), "ef"); // cut to what was there
    EXPECT_EQ(file.GetSize(), 6u);
}

TEST_F(FileTest, WriteModeEmptiesAnExistingFile) {
    test::WriteFileBytes(PathOf("w"), "old contents");
    {
        File file(PathOf("w"), FileMode::Write);
        EXPECT_EQ(file.GetSize(), 0u);
        file.Write("new");
    }
    EXPECT_EQ(test::ReadFileBytes(PathOf("w")), "new");
}

TEST_F(FileTest, WriteNewOnExistingFileFailsToOpen) {
    test::WriteFileBytes(PathOf("exists"), "x");
    File file(PathOf("exists"));
    EXPECT_EQ(WithoutLine(Message([&] { file.Open(FileMode::WriteNew); })),
              "Failed to open file with path: \"" + PathOf("exists") + "\"");
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.GetError(), "File exists");
    EXPECT_EQ(file.GetError(), ""); // taken and cleared
    // A failed open can be tried again.
    file.Open(FileMode::Read);
    EXPECT_EQ(file.Read(0), "x");
}

TEST_F(FileTest, WriteNewCreatesAMissingFile) {
    File file(PathOf("new"), FileMode::WriteNew);
    file.Write(std::string_view("\0\1", 2));
    file.Close();
    EXPECT_EQ(test::ReadFileBytes(PathOf("new")), std::string("\0\1", 2));
}

TEST_F(FileTest, OpeningAMissingFileForReadingFails) {
    EXPECT_EQ(WithoutLine(Message([&] { File file(PathOf("missing"), FileMode::Read); })),
              "Failed to open file with path: \"" + PathOf("missing") + "\"");
}

TEST_F(FileTest, ReadingAWriteOnlyFileFailsWithTheReadWording) {
    File file(PathOf("wo"), FileMode::Write);
    char byte;
    EXPECT_EQ(WithoutLine(Message([&] { file.Read(&byte, 1); })),
              "Failed to read file: Bad file descriptor\nFILE: " + PathOf("wo"));
}

TEST_F(FileTest, WritingAReadOnlyFileFailsWithTheWriteWording) {
    test::WriteFileBytes(PathOf("ro"), "x");
    File file(PathOf("ro"), FileMode::Read);
    EXPECT_EQ(WithoutLine(Message([&] { file.Write("y"); })),
              "Failed to write file: Bad file descriptor\nFILE: " + PathOf("ro"));
}

TEST_F(FileTest, PositionOfAClosedFileFailsWithTheReadWording) {
    File file(PathOf("closed"));
    EXPECT_EQ(WithoutLine(Message([&] { (void)file.GetPosition(); })),
              "Failed to read file: Bad file descriptor\nFILE: " + PathOf("closed"));
    EXPECT_EQ(WithoutLine(Message([&] { file.SetPosition(1); })),
              "Failed to write file: Bad file descriptor\nFILE: " + PathOf("closed"));
}

TEST_F(FileTest, SizeOfAClosedFileComesFromThePath) {
    test::WriteFileBytes(PathOf("sized"), "12345");
    const File file(PathOf("sized"));
    EXPECT_EQ(file.GetSize(), 5u);
    EXPECT_EQ(WithoutLine(Message([&] { (void)File(PathOf("nothing")).GetSize(); })),
              "Failed to read file: No such file or directory\nFILE: " + PathOf("nothing"));
}

TEST_F(FileTest, MoveHandsTheHandleOverAndCopyOpensNothing) {
    test::WriteFileBytes(PathOf("m"), "moved");
    File source(PathOf("m"), FileMode::Read);
    File copy(source);
    EXPECT_FALSE(copy.IsOpen());
    EXPECT_EQ(copy.GetFileMode(), FileMode::None);
    EXPECT_EQ(copy.GetFileName(), PathOf("m"));

    File target(std::move(source));
    EXPECT_FALSE(source.IsOpen());
    EXPECT_TRUE(target.IsOpen());
    EXPECT_EQ(target.Read(0), "moved");

    File assigned;
    assigned = std::move(target);
    EXPECT_FALSE(target.IsOpen());
    EXPECT_TRUE(assigned.IsOpen());
}

TEST_F(FileTest, StaticReadAndWrite) {
    File::Write(PathOf("s"), "static");
    EXPECT_EQ(File::Read(PathOf("s"), 0), "static");
    EXPECT_EQ(File::Read(PathOf("s"), 3), "sta");
}

TEST_F(FileTest, WorkingDirectoryCanBeSetAndRead) {
    const std::string before = File::GetWorkingDirectory();
    File::SetWorkingDirectory(dir.string());
    EXPECT_EQ(File::GetWorkingDirectory(), std::filesystem::canonical(dir).string());
    File::SetWorkingDirectory(before);
    EXPECT_THROW(File::SetWorkingDirectory(PathOf("no-such-folder")), Error);
}

TEST_F(FileTest, FsReadOfAnEmptyFileIsEmpty) {
    test::WriteFileBytes(PathOf("empty"), "");
    EXPECT_EQ(fs::Read(PathOf("empty")), "");
}

TEST_F(FileTest, FsWriteThenRead) {
    fs::Write(PathOf("fs"), std::string("a\0b", 3));
    EXPECT_EQ(fs::Read(PathOf("fs")), std::string("a\0b", 3));
}

TEST_F(FileTest, MakeDirectoryCreatesParentsAndAcceptsExisting) {
    const std::string nested = PathOf("a/b/c");
    fs::MakeDirectory(nested);
    EXPECT_TRUE(fs::IsDirectory(nested));
    EXPECT_NO_THROW(fs::MakeDirectory(nested));
}

TEST_F(FileTest, MakeDirectoryBelowAFileFails) {
    test::WriteFileBytes(PathOf("plain"), "x");
    EXPECT_EQ(WithoutLine(Message([&] { fs::MakeDirectory(PathOf("plain/sub")); })),
              "Failed to create save directory: Not a directory\nFILE: " + PathOf("plain/sub"));
}

TEST_F(FileTest, IsDirectory) {
    test::WriteFileBytes(PathOf("f"), "x");
    EXPECT_TRUE(fs::IsDirectory(dir.string()));
    EXPECT_FALSE(fs::IsDirectory(PathOf("f")));
    EXPECT_FALSE(fs::IsDirectory(PathOf("missing")));
}

TEST_F(FileTest, DeleteRemovesAFileAndFailsOnAMissingOne) {
    test::WriteFileBytes(PathOf("d"), "x");
    fs::Delete(PathOf("d"));
    EXPECT_FALSE(std::filesystem::exists(dir / "d"));
    EXPECT_EQ(WithoutLine(Message([&] { fs::Delete(PathOf("d")); })), "No such file or directory");
}

TEST_F(FileTest, DirectoryItemsOfAnEmptyFolderAreNone) {
    EXPECT_TRUE(fs::GetDirectoryItems(dir.string()).empty());
}

TEST_F(FileTest, DirectoryItemsAreBareNamesOfFilesAndFolders) {
    test::WriteFileBytes(PathOf("one.txt"), "1");
    std::filesystem::create_directory(dir / "sub");
    auto items = fs::GetDirectoryItems(dir.string());
    std::sort(items.begin(), items.end());
    EXPECT_EQ(items, (std::vector<std::string>{"one.txt", "sub"}));
}

TEST_F(FileTest, DirectoryItemsOfAMissingFolderFail) {
    EXPECT_EQ(WithoutLine(Message([&] { fs::GetDirectoryItems(PathOf("gone")); })),
              "Failed to find directory items: \"" + PathOf("gone") + "\"\nReason: No such file or directory");
}

TEST_F(FileTest, OverlongDirectoryPathIsRejected) {
    const std::string longPath = "/" + std::string(257, 'x');
    EXPECT_EQ(WithoutLine(Message([&] { fs::GetDirectoryItems(longPath); })), "Directory is too long");
    // Characters, not bytes, count: 128 two-byte characters are within the limit.
    std::string wide = "/";
    for (int i = 0; i < 128; ++i)
        wide += "\xc3\xa9";
    EXPECT_NE(WithoutLine(Message([&] { fs::GetDirectoryItems(wide); })), "Directory is too long");
}

TEST(FoldersTest, UserFoldersFollowXdgDataHome) {
    const std::string base = test::TempRoot() / "data";
    EXPECT_EQ(fs::GetUserSaveDataDirectory(), base + "/Nerquil Labs/Halvex2");
    EXPECT_EQ(fs::GetHVX1DataDirectory(), base + "/Nerquil Labs/Halvex");
}

TEST(FoldersTest, ProgramDataIsTheFirstXdgDataDir) {
    EXPECT_EQ(fs::GetSaveDataDirectory(), (test::TempRoot() / "shared").string() + "/Nerquil Labs/Halvex2");
}

TEST(FoldersTest, FontFolderHasNoBackslash) {
    EXPECT_EQ(fs::GetFontDirectory(), "/usr/share/fonts");
    EXPECT_EQ(fs::GetFontDirectory().find('\\'), std::string_view::npos);
}

TEST(FoldersTest, ViewsStayValidAndEqual) {
    const std::string_view first = fs::GetUserSaveDataDirectory();
    EXPECT_EQ(first.data(), fs::GetUserSaveDataDirectory().data());
}

TEST(FoldersDeathTest, DefaultsWithoutXdgSettings) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ::setenv("HOME", "/home/someone", 1);
            ::unsetenv("XDG_DATA_HOME");
            ::unsetenv("XDG_DATA_DIRS");
            const bool user = fs::GetUserSaveDataDirectory() == "/home/someone/.local/share/Nerquil Labs/Halvex2";
            const bool machine = fs::GetSaveDataDirectory() == "/usr/local/share/Nerquil Labs/Halvex2";
            std::exit(user && machine ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(FoldersDeathTest, RelativeXdgSettingsAreIgnored) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ::setenv("HOME", "/home/other", 1);
            ::setenv("XDG_DATA_HOME", "relative/path", 1);
            ::setenv("XDG_DATA_DIRS", "relative:/opt/share:/usr/share", 1);
            const bool user = fs::GetUserSaveDataDirectory() == "/home/other/.local/share/Nerquil Labs/Halvex2";
            const bool machine = fs::GetSaveDataDirectory() == "/opt/share/Nerquil Labs/Halvex2";
            std::exit(user && machine ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace nrq
