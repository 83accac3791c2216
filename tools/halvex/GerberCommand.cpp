// halvex gerber: Gerber files to triangles, drawn into a PNG or counted.
#include "Command.h"
#include "Failure.h"
#include "HostFiles.h"
#include "Options.h"

#include <CLI/CLI.hpp>

#include <HVX/App/Gerber.h>

#include <fmt/format.h>
#include <stb_image_write.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <iostream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Rgb = std::array<uint8_t, 3>;

constexpr Rgb background{0, 0, 0};
constexpr Rgb holeColour{0, 0, 0};
constexpr Rgb materialColour{255, 255, 255};
constexpr std::array<Rgb, 8> fileColours{{{255, 255, 255},
                                          {230, 80, 60},
                                          {70, 170, 255},
                                          {90, 210, 90},
                                          {250, 200, 40},
                                          {200, 100, 230},
                                          {60, 220, 210},
                                          {255, 140, 40}}};

struct Layer {
    std::string path;
    size_t firstTriangle;
    size_t endTriangle;
};

// The parser reports syntax errors on the console, one line each. Real files
// with obsolete codes give many; unless asked for they are kept back and
// counted.
class CapturedConsole {
public:
    CapturedConsole() : previous(std::cerr.rdbuf(captured.rdbuf())) {}
    ~CapturedConsole() { std::cerr.rdbuf(previous); }
    std::string Text() const { return captured.str(); }

private:
    std::ostringstream captured;
    std::streambuf* previous;
};

// Why a file drew nothing, in the words a person reads.
std::string NothingDrawnReason(const std::string& text) {
    if (text.find_first_not_of(" \t\r\n") == std::string::npos)
        return "the file is empty";
    return "it draws nothing (no aperture selected, no plotting mode set, or not a Gerber file)";
}

void ConvertFile(nrq::GerberVertexData& data, const std::string& path, bool verbose) {
    const std::string text = halvex::ReadWholeFile(path);
    const std::string shown = halvex::ShownName(path, false);
    const size_t trianglesBefore = data.indices.size();
    std::string messages;
    try {
        CapturedConsole console;
        try {
            nrq::ConvertGerberDataIntoVertices(data, text);
        } catch (...) {
            messages = console.Text();
            throw;
        }
        messages = console.Text();
    } catch (const std::exception&) {
        if (verbose)
            std::fputs(messages.c_str(), stderr);
        throw std::runtime_error(fmt::format("{}: {}", shown, halvex::DescribeFailure(std::current_exception())));
    }
    if (verbose && !messages.empty()) {
        std::fputs(messages.c_str(), stderr);
        const auto lines = std::count(messages.begin(), messages.end(), '\n');
        std::fprintf(stderr, "halvex: %s: the parser skipped %ld piece(s) of syntax\n", shown.c_str(),
                     static_cast<long>(lines));
    }
    if (data.indices.size() == trianglesBefore)
        throw std::runtime_error(fmt::format("{}: {}", shown, NothingDrawnReason(text)));
}

bool ValidTriangle(const nrq::GerberVertexData& data, size_t t) {
    const size_t vertices = data.vertices.size() / 2;
    for (size_t k = 0; k < 3; ++k) {
        const uint32_t v = data.indices[3 * t + k];
        if (v >= vertices || !std::isfinite(data.vertices[2 * v]) || !std::isfinite(data.vertices[2 * v + 1]))
            return false;
    }
    return true;
}

// Counts the hole discs: each is one run of vertices with fill 0.
size_t HoleCount(const nrq::GerberVertexData& data) {
    size_t holes = 0;
    for (size_t v = 0; v < data.fill.size(); ++v)
        if (data.fill[v] == 0 && (v == 0 || data.fill[v - 1] != 0))
            ++holes;
    return holes;
}

void ParseSize(const std::string& text, int& width, int& height) {
    int used = 0;
    if (std::sscanf(text.c_str(), "%dx%d%n", &width, &height, &used) == 2 && size_t(used) == text.size()) {
    } else if (std::sscanf(text.c_str(), "%d%n", &width, &used) == 1 && size_t(used) == text.size()) {
        height = width;
    } else {
        throw halvex::UsageError{fmt::format("--size must look like 800x600 or 800, not '{}'", text)};
    }
    if (width < 1 || height < 1 || width > 20000 || height > 20000)
        throw halvex::UsageError{"--size must be between 1 and 20000 pixels per side"};
}

struct Raster {
    int width;
    int height;
    std::vector<uint8_t> pixels;

    // Fills the pixels whose centres lie inside the triangle, edges included.
    void Fill(const double (&x)[3], const double (&y)[3], const Rgb& colour) {
        const double area = (x[1] - x[0]) * (y[2] - y[0]) - (y[1] - y[0]) * (x[2] - x[0]);
        if (area == 0)
            return;
        const double sign = area > 0 ? 1 : -1;
        const int x0 = std::max(0, static_cast<int>(std::floor(std::min({x[0], x[1], x[2]}))));
        const int x1 = std::min(width - 1, static_cast<int>(std::ceil(std::max({x[0], x[1], x[2]}))));
        const int y0 = std::max(0, static_cast<int>(std::floor(std::min({y[0], y[1], y[2]}))));
        const int y1 = std::min(height - 1, static_cast<int>(std::ceil(std::max({y[0], y[1], y[2]}))));
        for (int py = y0; py <= y1; ++py) {
            const double cy = py + 0.5;
            for (int px = x0; px <= x1; ++px) {
                const double cx = px + 0.5;
                bool inside = true;
                for (int k = 0; k < 3 && inside; ++k) {
                    const int j = (k + 1) % 3;
                    const double edge = (x[j] - x[k]) * (cy - y[k]) - (y[j] - y[k]) * (cx - x[k]);
                    inside = edge * sign >= 0;
                }
                if (inside)
                    std::copy(colour.begin(), colour.end(), pixels.begin() + 3 * (size_t(py) * width + px));
            }
        }
    }
};

void WritePng(const std::string& path, const nrq::GerberVertexData& data, const std::vector<Layer>& layers,
              int width, int height, double scale, bool colourPerFile) {
    // The view: the drawing's bounding box, centred.
    double minX = std::numeric_limits<double>::max(), minY = minX;
    double maxX = std::numeric_limits<double>::lowest(), maxY = maxX;
    const size_t triangles = data.indices.size() / 3;
    for (size_t t = 0; t < triangles; ++t) {
        if (!ValidTriangle(data, t))
            continue;
        for (size_t k = 0; k < 3; ++k) {
            const uint32_t v = data.indices[3 * t + k];
            minX = std::min(minX, double(data.vertices[2 * v]));
            maxX = std::max(maxX, double(data.vertices[2 * v]));
            minY = std::min(minY, double(data.vertices[2 * v + 1]));
            maxY = std::max(maxY, double(data.vertices[2 * v + 1]));
        }
    }
    if (minX > maxX)
        minX = maxX = minY = maxY = 0;
    if (scale <= 0) {
        // Fit with a margin of 5 % on every side.
        const double spanX = std::max(maxX - minX, 1e-6);
        const double spanY = std::max(maxY - minY, 1e-6);
        scale = std::min(width / spanX, height / spanY) * 0.9;
    }
    const double centreX = (minX + maxX) / 2;
    const double centreY = (minY + maxY) / 2;

    Raster raster{width, height, std::vector<uint8_t>(size_t(width) * height * 3)};
    for (size_t p = 0; p < size_t(width) * height; ++p)
        std::copy(background.begin(), background.end(), raster.pixels.begin() + 3 * p);
    for (size_t layer = 0; layer < layers.size(); ++layer) {
        const Rgb material = colourPerFile ? fileColours[layer % fileColours.size()] : materialColour;
        for (size_t t = layers[layer].firstTriangle; t < layers[layer].endTriangle; ++t) {
            if (!ValidTriangle(data, t))
                continue;
            double x[3], y[3];
            for (size_t k = 0; k < 3; ++k) {
                const uint32_t v = data.indices[3 * t + k];
                // Vertex y already points down the board as image rows do.
                x[k] = (data.vertices[2 * v] - centreX) * scale + width / 2.0;
                y[k] = (data.vertices[2 * v + 1] - centreY) * scale + height / 2.0;
            }
            raster.Fill(x, y, data.fill[data.indices[3 * t]] == 0 ? holeColour : material);
        }
    }
    std::string png;
    const auto append = [](void* context, void* bytes, int size) {
        static_cast<std::string*>(context)->append(static_cast<const char*>(bytes), static_cast<size_t>(size));
    };
    if (!stbi_write_png_to_func(append, &png, width, height, 3, raster.pixels.data(), width * 3))
        throw std::runtime_error(fmt::format("{}: the PNG could not be encoded", path));
    halvex::WriteWholeFile(path, png);
}

struct GerberOptions {
    std::vector<std::string> files;
    std::string png;
    std::string size = "1024x1024";
    double scale = 0.0;
    bool stats = false;
    bool colourPerFile = false;
    bool verbose = false;
};

int RunGerber(const GerberOptions& options) {
    if (options.png.empty() && !options.stats)
        throw halvex::UsageError{"nothing to do: give --png OUT, --stats or both"};
    int width = 1024;
    int height = 1024;
    ParseSize(options.size, width, height);
    if (!options.png.empty())
        halvex::CheckOutputs({{"--png", options.png}}, options.files);

    nrq::GerberVertexData data;
    std::vector<Layer> layers;
    for (const std::string& path : options.files) {
        const size_t first = data.indices.size() / 3;
        ConvertFile(data, path, options.verbose);
        layers.push_back({path, first, data.indices.size() / 3});
    }
    if (options.stats)
        std::printf("vertices %zu\ntriangles %zu\nholes %zu\n", data.vertices.size() / 2, data.indices.size() / 3,
                    HoleCount(data));
    if (!options.png.empty())
        WritePng(options.png, data, layers, width, height, options.scale, options.colourPerFile);
    return halvex::exitOk;
}

const char* const description =
    "Converts each Gerber file (RS-274X) into triangles with the library's Gerber\n"
    "import and draws them into a PNG, or counts them.\n"
    "\n"
    "The import draws a fixed subset: lengths in millimetres or inches, circle\n"
    "apertures (with or without a round hole) flashed (D03) or drawn along\n"
    "lines and arcs (G01, G02, G03 with D01), and regular polygon apertures\n"
    "flashed. It passes over, with a warning, regions\n"
    "(G36/G37), step and repeat, block apertures, polarity and attributes:\n"
    "clear objects are drawn like dark ones. It refuses, with one line naming\n"
    "the file, rectangle and obround apertures, aperture macros, a length before\n"
    "the unit is set (%MO), and files that draw nothing (empty, not Gerber, no\n"
    "aperture selected).";

halvex::CommandRun Setup(CLI::App& command) {
    auto options = std::make_shared<GerberOptions>();
    command.description(description);
    command.add_option("FILE", options->files, "Gerber files; - reads standard input")->required()->type_name("");
    command.add_option("--png", options->png, "write a PNG: material white, hole discs dark; - writes standard output")
        ->type_name("OUT");
    command.add_option("--size", options->size, "image size in pixels, WxH or one number for a square (default 1024x1024)")
        ->type_name("WxH");
    command.add_option("--scale", options->scale, "pixels per millimetre (default: fit the drawing)")
        ->check(halvex::PositiveNumber())
        ->type_name("PX");
    command.add_flag("--colour-per-file", options->colourPerFile, "draw each file's material in a colour of its own");
    command.add_flag("--stats", options->stats, "print the vertex, triangle and hole disc counts");
    command.add_flag("--verbose", options->verbose, "show the parser's syntax messages and how many it skipped");
    command.footer("Examples:\n"
                   "  halvex gerber board-Edge_Cuts.gbr --png outline.png --size 800x600\n"
                   "  halvex gerber top.gbr bottom.gbr --stats --colour-per-file --png both.png\n\n" +
                   halvex::ExitStatusText("a file that cannot be read, is refused by the import or draws nothing"));
    return [options] { return RunGerber(*options); };
}

} // namespace

static halvex::CommandRegistration registration({
    "gerber",
    "draw Gerber files (board outlines) into a PNG, or count their triangles",
    &Setup,
});
