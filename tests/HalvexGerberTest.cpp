// Runs the built "halvex gerber" as a process.
#include "support/TestEnvironment.h"

#include <gtest/gtest.h>

#define STB_IMAGE_IMPLEMENTATION
#define STBI_ONLY_PNG
#include <stb/stb_image.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>

#ifdef HVX_HALVEX_PATH

namespace nrq {
namespace {

const std::string samples = test::GerberSamples().string();

int Halvex(const std::string& arguments, std::string& output) {
    return test::RunCommand(std::string(HVX_HALVEX_PATH) + " gerber " + arguments, output);
}

struct Image {
    int width = 0;
    int height = 0;
    std::string pixels;

    std::array<int, 3> At(int x, int y) const {
        const size_t at = 3 * (size_t(y) * width + x);
        return {static_cast<unsigned char>(pixels[at]), static_cast<unsigned char>(pixels[at + 1]),
                static_cast<unsigned char>(pixels[at + 2])};
    }
};

Image ReadPng(const std::filesystem::path& path) {
    Image image;
    int channels = 0;
    unsigned char* data = stbi_load(path.c_str(), &image.width, &image.height, &channels, 3);
    if (data) {
        image.pixels.assign(reinterpret_cast<char*>(data), size_t(image.width) * image.height * 3);
        stbi_image_free(data);
    }
    return image;
}

TEST(HalvexGerber, StatsOfRealPads) {
    HVX_SKIP_WITHOUT_GERBER_SAMPLES();
    std::string output;
    ASSERT_EQ(Halvex(samples + "/units/pads/circle.gbr --stats", output), 0) << output;
    EXPECT_EQ(output, "vertices 64\ntriangles 62\nholes 0\n");
    // A disc and its hole disc, both of 64 vertices.
    ASSERT_EQ(Halvex(samples + "/units/pads/circle-with-hole.gbr --stats", output), 0) << output;
    EXPECT_EQ(output, "vertices 128\ntriangles 124\nholes 1\n");
    // Both files together.
    ASSERT_EQ(Halvex(samples + "/units/pads/circle.gbr " + samples + "/units/pads/circle-with-hole.gbr --stats", output), 0);
    EXPECT_EQ(output, "vertices 192\ntriangles 186\nholes 1\n");
}

TEST(HalvexGerber, PngOfARealOutline) {
    HVX_SKIP_WITHOUT_GERBER_SAMPLES();
    const auto dir = test::MakeTempDir("halvex-gerber");
    std::string output;
    ASSERT_EQ(Halvex(samples + "/boards/mchck/mchck-Edge_Cuts.pho --png " + (dir / "outline.png").string() +
                         " --size 320x200",
                     output),
              0)
        << output;
    const Image image = ReadPng(dir / "outline.png");
    ASSERT_EQ(image.width, 320);
    ASSERT_EQ(image.height, 200);
    // The outline is drawn, the inside of the board stays empty.
    EXPECT_NE(image.pixels.find('\xff'), std::string::npos);
    EXPECT_EQ(image.At(160, 100), (std::array<int, 3>{0, 0, 0}));
}

TEST(HalvexGerber, HolesAreDarkAndFilesGetColours) {
    const auto dir = test::MakeTempDir("halvex-gerber");
    // A ring of radius 1 mm around a hole of 0.5 mm at the origin, and a
    // disc of radius 0.5 mm at x = 3 mm in a second file.
    test::WriteFileBytes(dir / "ring.gbr", "%MOMM*%\n%FSLAX24Y24*%\n%ADD10C,2X1*%\nD10*\nX0Y0D03*\nM02*\n");
    test::WriteFileBytes(dir / "disc.gbr", "%MOMM*%\n%FSLAX24Y24*%\n%ADD10C,1*%\nD10*\nX30000Y0D03*\nM02*\n");
    std::string output;
    ASSERT_EQ(Halvex((dir / "ring.gbr").string() + " " + (dir / "disc.gbr").string() + " --png " +
                         (dir / "out.png").string() + " --size 200x100 --scale 20 --colour-per-file",
                     output),
              0)
        << output;
    const Image image = ReadPng(dir / "out.png");
    ASSERT_EQ(image.width, 200);
    // The drawing spans x from -1 to 3.5 mm: centre x 1.25 mm at pixel 100,
    // so the origin is at pixel 75, y = 0 at row 50; 20 pixels per mm.
    EXPECT_EQ(image.At(75, 50), (std::array<int, 3>{0, 0, 0}));        // hole
    EXPECT_EQ(image.At(75 + 15, 50), (std::array<int, 3>{255, 255, 255})); // ring, first file
    EXPECT_EQ(image.At(75, 50 - 15), (std::array<int, 3>{255, 255, 255}));
    EXPECT_EQ(image.At(75 + 60, 50), (std::array<int, 3>{230, 80, 60}));   // disc, second file
    EXPECT_EQ(image.At(5, 5), (std::array<int, 3>{0, 0, 0}));
}

TEST(HalvexGerber, FileOutsideTheSubsetGivesOneLine) {
    HVX_SKIP_WITHOUT_GERBER_SAMPLES();
    std::string output;
    const std::string file = samples + "/units/pads/rectangle.gbr";
    EXPECT_EQ(Halvex(file + " --stats", output), 1);
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1) << output;
    // The library's "(line)" prefix stays in the log, out of the message.
    EXPECT_EQ(output, "halvex: " + file + ": circular hole diameter must be positive.\n");
}

TEST(HalvexGerber, UsageErrors) {
    HVX_SKIP_WITHOUT_GERBER_SAMPLES();
    std::string output;
    EXPECT_EQ(Halvex("", output), 2);
    EXPECT_EQ(Halvex(samples + "/units/pads/circle.gbr", output), 2);
    EXPECT_EQ(Halvex(samples + "/units/pads/circle.gbr --stats --size 0x5", output), 2);
    EXPECT_EQ(Halvex(samples + "/units/pads/circle.gbr --stats --scale -1", output), 2);
    EXPECT_EQ(Halvex(samples + "/units/pads/circle.gbr --stats --bogus", output), 2);
    EXPECT_EQ(Halvex("/nonexistent/file.gbr --stats", output), 1);
}

} // namespace
} // namespace nrq

#endif
