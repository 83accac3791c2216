#include "HVX/App/Data/CombinedScanData.h"
#include "HVX/App/Data/SpatialScanData.h"
#include "HVX/App/Data/SpectralScanData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace nrq {
namespace {

constexpr int sweeps = 200;
constexpr size_t points = 128;

// Sweep k rises with k at every place but one, so a spectrum of maxima only grows.
FullScanMeasurement MakeSweep(int k) {
    FullScanMeasurement m;
    m.startFrequency = Frequency(100e6);
    m.stepFrequency = Frequency(10e3);
    m.count = points;
    m.values.resize(points);
    for (size_t i = 0; i < points; ++i)
        m.values[i] = DecibelMilliwatts(-100.0f + static_cast<float>(k) * 0.25f + static_cast<float>(i % 7));
    m.values[static_cast<size_t>(k) % points] = DecibelMilliwatts(-150.0f);
    m.position = Position(Length(0.001f * static_cast<float>(k % 40)), Length(0.002f * static_cast<float>(k / 40)),
                          Length(0.0f));
    m.time = std::chrono::steady_clock::time_point(std::chrono::microseconds(k));
    m.CalculateMaxIndex();
    return m;
}

size_t Lines(const std::string& csv) { return static_cast<size_t>(std::count(csv.begin(), csv.end(), '\n')); }

template <class Data>
std::unique_ptr<Data> ReadBack(const std::string& body) {
    auto read = std::make_unique<Data>();
    std::string_view view(body);
    read->DeserializeBinary(view, SerializeInfo{});
    EXPECT_TRUE(view.empty());
    return read;
}

// Runs `write` on one thread while `readOnce` takes snapshots on another. The
// writer waits halfway until the reader has taken two snapshots, so the two
// really overlap; the reader keeps going until the writer is done, then takes
// one last snapshot.
template <class Write, class Read>
void WriteWhileReading(Write write, Read readOnce) {
    std::latch start(2);
    std::atomic<bool> writerDone = false;
    std::atomic<int> snapshots = 0;

    std::thread writer([&] {
        start.arrive_and_wait();
        for (int k = 0; k < sweeps; ++k) {
            if (k == sweeps / 2) {
                for (int seen = snapshots.load(); seen < 2; seen = snapshots.load())
                    snapshots.wait(seen);
            }
            write(k);
        }
        writerDone = true;
    });
    std::thread reader([&] {
        start.arrive_and_wait();
        while (!writerDone) {
            readOnce(false);
            snapshots.fetch_add(1);
            snapshots.notify_all();
        }
        readOnce(true);
    });
    writer.join();
    reader.join();
    EXPECT_GE(snapshots.load(), 2);
}

TEST(ScanDataConcurrency, SpectralSnapshotsAreWholeAndNeverShrink) {
    auto data = std::make_shared<SpectralScanData>();
    std::vector<float> previous(points, -std::numeric_limits<float>::max());
    WriteWhileReading([&](int k) { data->AddMeasurement(MakeSweep(k), RepeatingBehavior::Overwrite); },
                      [&](bool last) {
                          std::unique_ptr<SpectralScanData> clone(data->Clone());
                          const SpectralScanData copy(*data);
                          const std::string body = data->SerializeBinary();
                          const std::string csv = data->SerializeToCSV();

                          auto read = ReadBack<SpectralScanData>(body);
                          const size_t n = read->GetValues().size();
                          ASSERT_TRUE(n == 0 || n == points);
                          EXPECT_EQ(body.size(), 241 + 4 * n);
                          EXPECT_TRUE(Lines(csv) == 1 || Lines(csv) == points + 1);
                          EXPECT_TRUE(clone->GetValues().size() == 0 || clone->GetValues().size() == points);
                          EXPECT_TRUE(copy.GetValues().size() == 0 || copy.GetValues().size() == points);
                          if (last) {
                              EXPECT_EQ(n, points);
                          }
                          for (size_t i = 0; i < n; ++i) {
                              const float value = read->GetValues()[i].dBm();
                              EXPECT_GE(value, previous[i]);
                              previous[i] = value;
                          }
                      });
}

TEST(ScanDataConcurrency, SpatialSnapshotsAreWholeAndOnlyGrow) {
    auto data = std::make_shared<SpatialScanData>();
    size_t previous = 0;
    WriteWhileReading([&](int k) { data->AddMeasurement(MakeSweep(k), RepeatingBehavior::Combine); },
                      [&](bool last) {
                          std::unique_ptr<SpatialScanData> clone(data->Clone());
                          const SpatialScanData copy(*data);
                          const std::string body = data->SerializeBinary();
                          const std::string csv = data->SerializeToCSV();

                          auto read = ReadBack<SpatialScanData>(body);
                          const size_t n = read->GetMeasurements().size();
                          EXPECT_EQ(body.size(), 245 + 32 * n);
                          EXPECT_GE(n, previous);
                          EXPECT_GE(Lines(csv), previous + 1);
                          EXPECT_GE(clone->GetMeasurements().size(), previous);
                          EXPECT_GE(copy.GetMeasurements().size(), previous);
                          EXPECT_EQ(static_cast<size_t>(clone->GetWriteIndex()), clone->GetMeasurements().size());
                          if (last) {
                              EXPECT_EQ(n, static_cast<size_t>(sweeps));
                          }
                          previous = n;
                      });
}

TEST(ScanDataConcurrency, CombinedSnapshotsAreWholeAndOnlyGrow) {
    auto data = std::make_shared<CombinedScanData>();
    size_t previous = 0;
    WriteWhileReading(
        [&](int k) {
            if (k % 2 == 0) {
                data->AddMeasurement(MakeSweep(k), RepeatingBehavior::Overwrite);
            } else {
                const FullScanMeasurement m = MakeSweep(k);
                data->AddMeasurement(m, RepeatingBehavior::Overwrite);
            }
        },
        [&](bool last) {
            std::unique_ptr<CombinedScanData> clone(data->Clone());
            const CombinedScanData copy(*data);
            const std::string body = data->SerializeBinary();
            const std::string csv = data->SerializeToCSV();

            auto read = ReadBack<CombinedScanData>(body);
            const size_t n = read->GetMeasurements().size();
            EXPECT_EQ(body.size(), 249 + (44 + 4 * points) * n);
            EXPECT_EQ(static_cast<size_t>(read->GetWriteIndex()), n);
            for (const FullScanMeasurement& entry : read->GetMeasurements())
                ASSERT_EQ(entry.values.size(), points);
            EXPECT_GE(n, previous);
            EXPECT_GE(Lines(csv), previous + 1);
            EXPECT_GE(clone->GetMeasurements().size(), previous);
            EXPECT_GE(copy.GetMeasurements().size(), previous);
            if (last) {
                EXPECT_EQ(n, static_cast<size_t>(sweeps));
            }
            previous = n;
        });
}

} // namespace
} // namespace nrq
