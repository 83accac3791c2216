#include "HVX/App/Data/ScanData.h"
#include "HVX/Base/Serialize.h"
#include "HVX/Device/NullScanner.h"
#include "HVX/Device/UnknownDeserialized.h"
#include "support/Bytes.h"
#include "support/SerializeHelpers.h"

#include <gtest/gtest.h>

#include <memory>

namespace nrq {
namespace {

using test::Bytes;
using test::Record;
using test::U32;

// A type that only some "libraries" know: registered under a name of its own
// in the tests that play the newer library.
class LateType : public ISerializable {
public:
    LateType* Clone() const override { return new LateType(*this); }
    const std::string& GetSerialType() const override {
        static const std::string name = "TestLateType";
        return name;
    }
    std::string SerializeBinary() const override {
        std::string out;
        AppendRaw(out, value);
        return out;
    }
    void DeserializeBinary(std::string_view& data, const SerializeInfo&) override {
        BinaryCursor(data).ReadInto(value);
    }
    using ISerializable::DeserializeBinary;
    uint32_t value = 0;
};

using test::Version;

TEST(StringRecord, LengthThenBytesWithoutTerminator) {
    std::string out;
    AppendSerializeString(out, "abc");
    EXPECT_EQ(out, Bytes({3, 0, 0, 0, 'a', 'b', 'c'}));
    AppendSerializeString(out, "");
    EXPECT_EQ(out, Bytes({3, 0, 0, 0, 'a', 'b', 'c', 0, 0, 0, 0}));
}

TEST(StringRecord, MaxLengthCutsTheText) {
    std::string out;
    AppendSerializeString(out, "abcdef", 2);
    EXPECT_EQ(out, Bytes({2, 0, 0, 0, 'a', 'b'}));
}

TEST(StringRecord, ReadAdvancesTheView) {
    const std::string data = Record("hello") + Record("");
    std::string_view view(data);
    EXPECT_EQ(ViewDeserializeString(view), "hello");
    EXPECT_EQ(view.size(), 4u);
    EXPECT_EQ(ViewDeserializeString(view), "");
    EXPECT_TRUE(view.empty());
}

TEST(StringRecord, LengthBeyondTheRestRaisesDeserializationError) {
    const std::string data = U32(6) + "short";
    std::string_view view(data);
    try {
        ViewDeserializeString(view);
        FAIL();
    } catch (const Error& error) {
        EXPECT_NE(std::string(error.what()).find(") Deserialization ERROR"), std::string::npos);
    }
}

TEST(StringRecord, FewerThanFourLengthBytesRaiseTheSameError) {
    const std::string data = Bytes({1, 0});
    std::string_view view(data);
    EXPECT_THROW(ViewDeserializeString(view), Error);
}

TEST(BinaryCursorTest, ReadsLittleEndianFieldsAndRefusesToReadPastTheEnd) {
    const std::string data = Bytes({0x78, 0x56, 0x34, 0x12, 0xAB});
    std::string_view view(data);
    BinaryCursor cursor(view);
    EXPECT_EQ(cursor.Read<uint32_t>(), 0x12345678u);
    EXPECT_EQ(cursor.Remaining(), 1u);
    try {
        cursor.Read<uint16_t>();
        FAIL();
    } catch (const Error& error) {
        EXPECT_NE(std::string(error.what()).find("Deserialization ERROR"), std::string::npos);
    }
    EXPECT_EQ(cursor.Read<uint8_t>(), 0xABu);
    EXPECT_TRUE(view.empty());
}

TEST(ObjectRecord, NullObjectIsEightZeroBytesAndReadsBackAsNull) {
    std::string out;
    AppendSerializeObject(out, static_cast<ISerializable*>(nullptr));
    EXPECT_EQ(out, std::string(8, '\0'));
    out += "tail";
    std::string_view view(out);
    EXPECT_EQ(ViewDeserializeObject(view, SerializeInfo{}), nullptr);
    EXPECT_EQ(view, "tail");
}

TEST(ObjectRecord, FramingIsTypeRecordThenBodyRecord) {
    std::string out;
    AppendSerializeObject(out, std::shared_ptr<ISerializable>(std::make_shared<NullScannerParameters>()));
    EXPECT_EQ(out, Bytes({6, 0, 0, 0, 'N', 'u', 'l', 'l', 'S', 'P', 0, 0, 0, 0}));
}

TEST(ObjectRecord, RegisteredTypeComesBackAsItsClass) {
    std::string out;
    const NullScannerState state;
    AppendSerializeObject(out, &state);
    std::unique_ptr<ISerializable> back(ViewDeserializeObject(out, SerializeInfo{}));
    ASSERT_NE(dynamic_cast<NullScannerState*>(back.get()), nullptr);
}

TEST(ObjectRecord, TwoRecordsInARowComeBackInOrder) {
    std::string out;
    const NullScannerParameters parameters;
    const NullScannerState state;
    AppendSerializeObject(out, &parameters);
    AppendSerializeObject(out, &state);
    std::string_view view(out);
    std::unique_ptr<ISerializable> first(ViewDeserializeObject(view, SerializeInfo{}));
    std::unique_ptr<ISerializable> second(ViewDeserializeObject(view, SerializeInfo{}));
    EXPECT_EQ(first->GetSerialType(), "NullSP");
    EXPECT_EQ(second->GetSerialType(), "NullSS");
    EXPECT_TRUE(view.empty());
}

TEST(ObjectRecord, UnregisteredTypeIsKeptAsUnknownSerializableWithTheReadersVersion) {
    const std::string body = Bytes({1, 2, 3});
    const std::string record = Record("SomethingNew") + Record(body);
    std::unique_ptr<ISerializable> object(ViewDeserializeObject(record, Version(4)));
    auto* unknown = dynamic_cast<UnknownSerializable*>(object.get());
    ASSERT_NE(unknown, nullptr);
    EXPECT_EQ(unknown->GetType(), "SomethingNew");
    EXPECT_EQ(unknown->GetData(), body);
    EXPECT_EQ(unknown->GetFormat(), 4);
    EXPECT_EQ(unknown->GetSerialType(), "UnknownSerializable");
}

TEST(ObjectRecord, FallBackWrapperBodyIsTypeDataFormat) {
    const UnknownSerializable unknown("Kind", Bytes({9, 8}), 4);
    std::string out;
    AppendSerializeObject(out, &unknown);
    const std::string body = Record("Kind") + Record(Bytes({9, 8})) + Bytes({4, 0, 0, 0});
    EXPECT_EQ(out, Record("UnknownSerializable") + Record(body));
}

TEST(ObjectRecord, UnknownObjectSurvivesOneWrapperDeepHoweverOftenRewritten) {
    const std::string original = Record("SomethingNew") + Record(Bytes({5, 6}));
    std::string current = original;
    for (int round = 0; round < 3; ++round) {
        std::unique_ptr<ISerializable> object(ViewDeserializeObject(current, Version(5)));
        current.clear();
        AppendSerializeObject(current, object.get());
    }
    const std::string expectedBody = Record("SomethingNew") + Record(Bytes({5, 6})) + Bytes({5, 0, 0, 0});
    EXPECT_EQ(current, Record("UnknownSerializable") + Record(expectedBody));
}

TEST(ObjectRecord, WrappedObjectComesBackToLifeWhereItsTypeIsRegistered) {
    // An older library kept a TestLateType body, unknown to it, in a wrapper.
    const std::string lateBody = U32(0xCAFE);
    const UnknownSerializable wrapper("TestLateType", lateBody, 4);
    std::string file;
    AppendSerializeObject(file, &wrapper);

    // Before the type is known, reading keeps it wrapped.
    {
        std::unique_ptr<ISerializable> kept(ViewDeserializeObject(file, Version(5)));
        auto* unknown = dynamic_cast<UnknownSerializable*>(kept.get());
        ASSERT_NE(unknown, nullptr);
        EXPECT_EQ(unknown->GetType(), "TestLateType");
        EXPECT_EQ(unknown->GetFormat(), 4);
    }
    // The newer library knows it.
    static SerializableTypes registerLate(std::make_unique<LateType>());
    std::unique_ptr<ISerializable> alive(ViewDeserializeObject(file, Version(5)));
    auto* late = dynamic_cast<LateType*>(alive.get());
    ASSERT_NE(late, nullptr);
    EXPECT_EQ(late->value, 0xCAFEu);
}

TEST(ObjectRecord, StoredEmptyTypeResolvesNoFurther) {
    const UnknownSerializable wrapper("", Bytes({1}), 3);
    std::string file;
    AppendSerializeObject(file, &wrapper);
    std::unique_ptr<ISerializable> object(ViewDeserializeObject(file, Version(5)));
    auto* unknown = dynamic_cast<UnknownSerializable*>(object.get());
    ASSERT_NE(unknown, nullptr);
    EXPECT_EQ(unknown->GetType(), "");
    EXPECT_EQ(unknown->GetData(), Bytes({1}));
    EXPECT_EQ(unknown->GetFormat(), 3);
}

TEST(ObjectRecord, BlankScanDataWritesSDWithEmptyBodyAndReadsBackAsUnknown) {
    const BlankScanData blank;
    std::string out;
    AppendSerializeObject(out, &blank);
    EXPECT_EQ(out, Bytes({2, 0, 0, 0, 'S', 'D', 0, 0, 0, 0}));
    std::unique_ptr<ISerializable> back(ViewDeserializeObject(out, Version(5)));
    auto* unknown = dynamic_cast<UnknownSerializable*>(back.get());
    ASSERT_NE(unknown, nullptr);
    EXPECT_EQ(unknown->GetType(), "SD");
    EXPECT_EQ(unknown->GetData(), "");
}

TEST(ObjectRecord, UnregisteredTypesWithNamesBecomeUnknown) {
    for (const char* name : {"AnalyzerParameters", "NullAP", "DobotMagSP", "DobotMagSS", "LiveSP", "LiveSS"}) {
        const std::string record = Record(name) + Record("");
        std::unique_ptr<ISerializable> object(ViewDeserializeObject(record, Version(5)));
        EXPECT_NE(dynamic_cast<UnknownSerializable*>(object.get()), nullptr) << name;
    }
}

TEST(ObjectRecord, TruncatedBodyIsContainedByItsLengthPrefix) {
    // A NullAP body is eight bytes; four are given, so the body read fails inside its record.
    const std::string record = Record("UnknownAnalyzerParameters") + Record(Record("x"));
    EXPECT_THROW(std::unique_ptr<ISerializable>(ViewDeserializeObject(record, Version(5))), Error);
}

TEST(Registry, HoldsTheFallBacksAndTheNullScannerClasses) {
    const SerializableTypeMap& types = GetSerializableTypes();
    for (const char* name : {"UnknownSerializable", "UnknownAnalyzerParameters", "UnknownScannerParameters",
                             "UnknownScannerState", "UnknownScanData", "NullSP", "NullSS"}) {
        ASSERT_TRUE(types.count(name)) << name;
        EXPECT_EQ(types.at(name)->GetSerialType(), name);
    }
    EXPECT_EQ(types.count("AnalyzerParameters"), 0u);
    EXPECT_EQ(types.count("NullAP"), 0u);
    EXPECT_EQ(types.count("SD"), 0u);
    EXPECT_FLOAT_EQ(types.max_load_factor(), 1.0f);
}

TEST(Registry, FirstPrototypeOfANameStays) {
    const ISerializable* before = GetSerializableTypes().at("NullSS").get();
    SerializableTypes again(std::make_unique<NullScannerState>());
    EXPECT_EQ(GetSerializableTypes().at("NullSS").get(), before);
}

template <class FallBack>
void ExpectFallBackRoundTrip(const std::string& serialName) {
    FallBack original;
    original.SetType("Inner");
    original.SetData(std::string_view("\x01\x02", 2));
    original.SetFormat(4);
    EXPECT_EQ(original.GetSerialType(), serialName);
    const std::string body = original.SerializeBinary();
    EXPECT_EQ(body, Record("Inner") + Record(Bytes({1, 2})) + Bytes({4, 0, 0, 0}));
    FallBack read;
    read.DeserializeBinary(body, Version(1)); // the version does not matter
    EXPECT_EQ(read.GetType(), "Inner");
    EXPECT_EQ(read.GetData(), Bytes({1, 2}));
    EXPECT_EQ(read.GetFormat(), 4);
    std::unique_ptr<FallBack> clone(read.Clone());
    EXPECT_EQ(clone->GetData(), Bytes({1, 2}));
    FallBack assigned;
    assigned = read;
    EXPECT_EQ(assigned.GetType(), "Inner");
}

TEST(FallBack, EveryFallBackClassHasTheSameBody) {
    ExpectFallBackRoundTrip<UnknownSerializable>("UnknownSerializable");
    ExpectFallBackRoundTrip<UnknownAnalyzerParameters>("UnknownAnalyzerParameters");
    ExpectFallBackRoundTrip<UnknownScannerParameters>("UnknownScannerParameters");
    ExpectFallBackRoundTrip<UnknownScannerState>("UnknownScannerState");
    ExpectFallBackRoundTrip<UnknownScanData>("UnknownScanData");
}

TEST(FallBack, BehaveAsTheirBasesDefaults) {
    EXPECT_TRUE(UnknownScanData().IsEmpty());
    EXPECT_EQ(UnknownScannerParameters().NewState(), nullptr);
    float progress = 0.5f;
    EXPECT_FALSE(UnknownScannerState().GetProgress(progress));
    EXPECT_EQ(progress, 0.5f);
}

TEST(FallBack, SetDataFromBytes) {
    UnknownSerializable unknown;
    const char bytes[] = {'a', '\0', 'b'};
    unknown.SetData(bytes, sizeof(bytes));
    EXPECT_EQ(unknown.GetData(), std::string(bytes, 3));
}

} // namespace
} // namespace nrq
