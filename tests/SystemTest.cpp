#include "HVX/App/UserChoice.h"
#include "HVX/Base/Error.h"
#include "HVX/Base/System.h"
#include "HVX/Base/UserData.h"
#include "support/TestEnvironment.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace nrq {
namespace {

TEST(ProcessorFeatures, ArmIsNeverSupported) { EXPECT_FALSE(IsSupported(ARMExtension::NEON)); }

#if defined(__x86_64__)
TEST(ProcessorFeatures, AgreeWithTheProcessorsOwnAnswer) {
    // Every x86-64 processor has SSE2 (leaf 1, EDX bit 26).
    EXPECT_TRUE(IsSupported(X86Extension::SSE2));
    unsigned a, b, c, d;
    __cpuid(1, a, b, c, d);
    EXPECT_EQ(IsSupported(X86Extension::SSE3), bool(c & 1u));
    EXPECT_EQ(IsSupported(X86Extension::POPCNT), bool((c >> 23) & 1u));
    EXPECT_EQ(IsSupported(X86Extension::AVX), bool((c >> 28) & 1u));
    EXPECT_EQ(IsSupported(X86Extension::MMX), bool((d >> 23) & 1u));
}

TEST(ProcessorFeatures, VendorOnlyFlagsFollowTheVendor) {
    unsigned a, b, c, d;
    __cpuid(0, a, b, c, d);
    const bool amd = b == 0x68747541u; // "Auth"
    const bool intel = b == 0x756e6547u; // "Genu"
    if (!intel) {
        EXPECT_FALSE(IsSupported(X86Extension::HLE));
        EXPECT_FALSE(IsSupported(X86Extension::SYSCALL));
    }
    if (!amd) {
        EXPECT_FALSE(IsSupported(X86Extension::ABM));
        EXPECT_FALSE(IsSupported(X86Extension::AMD3DNOW));
    }
}
#endif

TEST(ProcessorFeatures, FiftyTwoFlags) { EXPECT_EQ(static_cast<int>(X86Extension::Count), 52); }

TEST(MemoryUsage, ReportsPrivateMemoryThatGrowsWithAnAllocation) {
    const size_t before = GetMemoryUsage();
    EXPECT_GT(before, 0u);
    // Touched, so resident and private. The margin is wide: a sanitizer's
    // allocator may hand cached memory back to the system between the two
    // readings.
    std::vector<char> block(size_t(256) << 20, 1);
    const size_t after = GetMemoryUsage();
    EXPECT_GE(after, before + (size_t(160) << 20));
    EXPECT_EQ(block[12345], 1);
}

TEST(UserChoice, WithoutCallbackRaises) {
    SetUserChoiceCallback(nullptr);
    try {
        AskForUserChoice(UserChoiceRequest{});
        FAIL();
    } catch (const Error& error) {
        const std::string what = error.what();
        EXPECT_EQ(what.front(), '(');
        EXPECT_NE(what.find(") input is required but no callback was set"), std::string::npos);
    }
}

TEST(UserChoice, CallbackAnswersAndCanBeRead) {
    SetUserChoiceCallback([](const UserChoiceRequest& request) { return request.option1 + 10; });
    UserChoiceRequest request;
    EXPECT_EQ(request.option0, -1);
    EXPECT_EQ(request.option2, -1);
    EXPECT_TRUE(request.title.empty() && request.message.empty() && request.details.empty());
    request.option1 = 5;
    EXPECT_EQ(AskForUserChoice(request), 15);
    EXPECT_TRUE(static_cast<bool>(GetUserChoiceCallback()));
    SetUserChoiceCallback({}); // an empty function counts as not set
    EXPECT_THROW(AskForUserChoice(request), Error);
}

TEST(TaskEvents, ThreadWithoutHandlerGetsOne) {
    TaskEventResponse response{};
    std::thread([&] { response = EmitTaskEvent(TaskEvent::TavrelSecondPass); }).join();
    EXPECT_EQ(response.value, 1);
}

TEST(TaskEvents, HandlerIsPerThread) {
    struct Answer : TaskEventHandler {
        TaskEvent seen{};
        TaskEventResponse HandleTaskEvent(TaskEvent event) override {
            seen = event;
            return {0};
        }
    } handler;
    SetThreadTaskEventHandler(&handler);
    EXPECT_EQ(EmitTaskEvent(TaskEvent::DobotSecondPass).value, 0);
    EXPECT_EQ(handler.seen, TaskEvent::DobotSecondPass);
    TaskEventResponse other{};
    std::thread([&] { other = EmitTaskEvent(TaskEvent::DobotSecondPass); }).join();
    EXPECT_EQ(other.value, 1);
    SetThreadTaskEventHandler(nullptr);
    EXPECT_EQ(EmitTaskEvent(TaskEvent::TavrelSecondPass).value, 1);
}

TEST(LaunchArgumentsTest, StayEmpty) {
    LaunchArguments arguments;
    arguments.AddDef("verbose", LaunchArgumentType::Flag);
    arguments.ProcessCmdLine("--verbose --name x");
    EXPECT_EQ(arguments.size(), 0u);
    LaunchArguments copy = arguments;
    LaunchArguments moved = std::move(copy);
    EXPECT_EQ(moved.size(), 0u);
}

TEST(OpenFolderTest, HandsThePathToTheDesktopOpener) {
    // A stand-in xdg-open on PATH writes its argument into a pipe; reading the
    // pipe waits for it, so no sleeping is needed.
    const auto dir = test::MakeTempDir("open-folder");
    const std::string fifo = (dir / "said").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    test::WriteFileBytes(dir / "xdg-open", "#!/bin/sh\nprintf '%s' \"$1\" > '" + fifo + "'\n");
    std::filesystem::permissions(dir / "xdg-open", std::filesystem::perms::owner_all);
    const std::string oldPath = std::getenv("PATH") ? std::getenv("PATH") : "";
    ::setenv("PATH", (dir.string() + ":" + oldPath).c_str(), 1);
    OpenFolder("/some folder/with blanks");
    ::setenv("PATH", oldPath.c_str(), 1);
    EXPECT_EQ(test::ReadFileBytes(fifo), "/some folder/with blanks");
}

TEST(UserDataContainerTest, StartsNullAndCopiesThePointer) {
    UserDataContainer container;
    EXPECT_EQ(container.GetUserData(), nullptr);
    int owner = 0;
    container.SetUserData(&owner);
    const UserDataContainer copy = container;
    EXPECT_EQ(copy.GetUserData(), &owner);
}

} // namespace
} // namespace nrq
