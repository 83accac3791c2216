#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

// Every test process gets its own HOME and XDG folders below a temporary
// directory, set before the library computes its folders.
int main(int argc, char** argv) {
    namespace stdfs = std::filesystem;
    const stdfs::path root = nrq::test::TempRoot();
    stdfs::create_directories(root / "home");
    stdfs::create_directories(root / "data");
    stdfs::create_directories(root / "config");
    ::setenv("HOME", (root / "home").c_str(), 1);
    ::setenv("XDG_DATA_HOME", (root / "data").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (root / "config").c_str(), 1);
    ::setenv("XDG_DATA_DIRS", (root / "shared").c_str(), 1);
    ::setenv("TZ", "UTC", 1);

    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();

    if (!std::getenv("HVX_KEEP_TEST_FILES")) {
        std::error_code ignored;
        stdfs::remove_all(root, ignored);
    }
    return result;
}
