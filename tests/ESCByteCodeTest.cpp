#include "HVX/ESC/ByteCode.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <vector>

namespace nrq {
namespace {

using Op = ESCOpCode;
using In = ESCByteCodeInstruction;

std::vector<int> Bytes(const In& instruction) {
    std::vector<int> raw(12);
    unsigned char copy[12];
    std::memcpy(copy, &instruction, 12);
    for (size_t i = 0; i < 12; ++i)
        raw[i] = copy[i];
    return raw;
}

TEST(ESCByteCodeInstruction, IsTwelveBytes) {
    EXPECT_EQ(sizeof(In), 12u);
    EXPECT_EQ(alignof(In), 2u);
}

TEST(ESCByteCodeInstruction, OpCodeNumbers) {
    EXPECT_EQ(static_cast<int>(Op::Malformed), 0);
    EXPECT_EQ(static_cast<int>(Op::OutputRegister), 1);
    EXPECT_EQ(static_cast<int>(Op::OutputString), 2);
    EXPECT_EQ(static_cast<int>(Op::EndLine), 3);
    EXPECT_EQ(static_cast<int>(Op::LoadInt), 4);
    EXPECT_EQ(static_cast<int>(Op::LoadFloat), 5);
    EXPECT_EQ(static_cast<int>(Op::LoadString), 6);
    EXPECT_EQ(static_cast<int>(Op::LoadNil), 7);
    EXPECT_EQ(static_cast<int>(Op::LoadFrequency), 8);
    EXPECT_EQ(static_cast<int>(Op::ReadVariable), 9);
    EXPECT_EQ(static_cast<int>(Op::WriteVariable), 10);
    EXPECT_EQ(static_cast<int>(Op::Band), 11);
    EXPECT_EQ(static_cast<int>(Op::Bor), 12);
    EXPECT_EQ(static_cast<int>(Op::Bxor), 13);
    EXPECT_EQ(static_cast<int>(Op::Add), 14);
    EXPECT_EQ(static_cast<int>(Op::Sub), 15);
    EXPECT_EQ(static_cast<int>(Op::Mul), 16);
    EXPECT_EQ(static_cast<int>(Op::Div), 17);
    EXPECT_EQ(static_cast<int>(Op::IDiv), 18);
    EXPECT_EQ(static_cast<int>(Op::Eq), 19);
    EXPECT_EQ(static_cast<int>(Op::Neq), 20);
    EXPECT_EQ(static_cast<int>(Op::Gt), 21);
    EXPECT_EQ(static_cast<int>(Op::Lt), 22);
    EXPECT_EQ(static_cast<int>(Op::Gte), 23);
    EXPECT_EQ(static_cast<int>(Op::Lte), 24);
    EXPECT_EQ(static_cast<int>(Op::And), 25);
    EXPECT_EQ(static_cast<int>(Op::Or), 26);
    EXPECT_EQ(static_cast<int>(Op::Xor), 27);
    EXPECT_EQ(static_cast<int>(Op::Not), 28);
    EXPECT_EQ(static_cast<int>(Op::Neg), 29);
    EXPECT_EQ(static_cast<int>(Op::Call), 30);
    EXPECT_EQ(static_cast<int>(Op::Nop), 31);
}

TEST(ESCByteCodeInstruction, FormsLayOutTheirOperands) {
    EXPECT_EQ(Bytes(In::None(Op::EndLine)), (std::vector<int>{3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Bytes(In::String(Op::OutputString, 0x0102030405060708ull)),
              (std::vector<int>{2, 0, 8, 7, 6, 5, 4, 3, 2, 1, 0, 0}));
    EXPECT_EQ(Bytes(In::Register(Op::OutputRegister, 0x1234)),
              (std::vector<int>{1, 0, 0x34, 0x12, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Bytes(In::Load(Op::LoadInt, 3, static_cast<uint64_t>(int64_t{-2}))),
              (std::vector<int>{4, 0, 3, 0, 0xfe, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}));
    // 2.5 is 0x4004000000000000.
    EXPECT_EQ(Bytes(In::Load(Op::LoadFloat, 1, std::bit_cast<uint64_t>(2.5))),
              (std::vector<int>{5, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0x04, 0x40}));
    EXPECT_EQ(Bytes(In::ThreeRegister(Op::Sub, 1, 2, 0x0304)),
              (std::vector<int>{15, 0, 1, 0, 2, 0, 4, 3, 0, 0, 0, 0}));
    EXPECT_EQ(Bytes(In::TwoRegister(Op::Neg, 5, 6)), (std::vector<int>{29, 0, 5, 0, 6, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Bytes(In::Call(4, ESCBuiltin::TypeOf, 4, 1)),
              (std::vector<int>{30, 0, 4, 0, 1, 0, 4, 0, 1, 0, 0, 0}));
}

TEST(ESCByteCodeInstruction, ReadersMatchTheForms) {
    const In load = In::Load(Op::ReadVariable, 7, 0xabcdef);
    EXPECT_EQ(load.Destination(), 7);
    EXPECT_EQ(load.Immediate(), 0xabcdefu);
    const In three = In::ThreeRegister(Op::Add, 1, 2, 3);
    EXPECT_EQ(three.Destination(), 1);
    EXPECT_EQ(three.Left(), 2);
    EXPECT_EQ(three.Right(), 3);
    const In two = In::TwoRegister(Op::Not, 8, 9);
    EXPECT_EQ(two.Source(), 9);
    const In call = In::Call(2, ESCBuiltin::ReadOutput, 3, 4);
    EXPECT_EQ(call.Destination(), 2);
    EXPECT_EQ(call.Builtin(), ESCBuiltin::ReadOutput);
    EXPECT_EQ(call.FirstArgument(), 3);
    EXPECT_EQ(call.ArgumentCount(), 4);
    EXPECT_EQ(In::String(Op::OutputString, 99).StringIndex(), 99u);
}

TEST(ESCByteCode, EqualStringsShareOneIndex) {
    ESCByteCode code;
    EXPECT_EQ(code.AddString("FREQ"), 0u);
    EXPECT_EQ(code.AddString("CENT"), 1u);
    EXPECT_EQ(code.AddString("FREQ"), 0u);
    EXPECT_EQ(code.AddString(""), 2u);
    EXPECT_EQ(code.AddString(""), 2u);
    EXPECT_EQ(code.AddString(std::string("CENT")), 1u);
    ASSERT_EQ(code.GetStrings().size(), 3u);
    EXPECT_EQ(std::string_view(code.GetStrings()[1]), "CENT");
}

TEST(ESCByteCode, ManyStringsStayFindable) {
    ESCByteCode code;
    for (int i = 0; i < 500; ++i)
        EXPECT_EQ(code.AddString("s" + std::to_string(i)), static_cast<uint64_t>(i));
    for (int i = 0; i < 500; ++i)
        EXPECT_EQ(code.AddString("s" + std::to_string(i)), static_cast<uint64_t>(i));
    EXPECT_EQ(code.GetStrings().size(), 500u);
}

TEST(ESCByteCode, CopyHasATableOfItsOwn) {
    auto original = std::make_unique<ESCByteCode>();
    original->AddString("a");
    original->AddString("b");
    original->AddInstruction(In::String(Op::OutputString, 1));
    ESCByteCode copy(*original);
    ESCByteCode assigned;
    assigned.AddString("other");
    assigned = *original;
    original.reset();
    // The original's strings are gone; lookups must use the copies' own.
    EXPECT_EQ(copy.AddString("b"), 1u);
    EXPECT_EQ(copy.AddString("c"), 2u);
    EXPECT_EQ(assigned.AddString("a"), 0u);
    EXPECT_EQ(assigned.AddString("other"), 2u);
    EXPECT_EQ(copy.GetInstructions(), (std::vector<In>{In::String(Op::OutputString, 1)}));
}

TEST(ESCByteCode, MoveKeepsTheTable) {
    ESCByteCode code;
    code.AddString("a");
    ESCByteCode moved(std::move(code));
    EXPECT_EQ(moved.AddString("a"), 0u);
    EXPECT_EQ(moved.AddString("b"), 1u);
}

TEST(ESCDisassemble, ListsCodeAndPool) {
    ESCByteCode code;
    code.AddInstruction(In::String(Op::OutputString, code.AddString("FREQ \"x\"\n")));
    code.AddInstruction(In::Load(Op::ReadVariable, 0, code.AddString("Span")));
    code.AddInstruction(In::Load(Op::LoadFrequency, 1, std::bit_cast<uint64_t>(1e6)));
    code.AddInstruction(In::Load(Op::LoadInt, 2, static_cast<uint64_t>(int64_t{-3})));
    code.AddInstruction(In::Load(Op::LoadFloat, 2, std::bit_cast<uint64_t>(0.5)));
    code.AddInstruction(In::ThreeRegister(Op::Div, 1, 1, 2));
    code.AddInstruction(In::TwoRegister(Op::Neg, 1, 1));
    code.AddInstruction(In::Call(0, ESCBuiltin::TypeOf, 0, 1));
    code.AddInstruction(In::Load(Op::WriteVariable, 0, 1));
    code.AddInstruction(In::Register(Op::OutputRegister, 0));
    code.AddInstruction(In::Load(Op::LoadString, 3, 7));
    code.AddInstruction(In::None(Op::EndLine));
    code.AddInstruction(In::None(static_cast<Op>(99)));
    EXPECT_EQ(ESCDisassemble(code),
              "code:\n"
              "   0  text   #0 \"FREQ \\\"x\\\"\\n\"\n"
              "   1  get    r0, #1 Span\n"
              "   2  freq   r1, 1000000 Hz\n"
              "   3  int    r2, -3\n"
              "   4  float  r2, 0.5\n"
              "   5  div    r1, r1, r2\n"
              "   6  neg    r1, r1\n"
              "   7  call   r0, typeof, r0, 1\n"
              "   8  set    #1 Span, r0\n"
              "   9  out    r0\n"
              "  10  str    r3, #7 (outside the pool)\n"
              "  11  endl\n"
              "  12  code 99\n"
              "strings:\n"
              "   0  \"FREQ \\\"x\\\"\\n\"\n"
              "   1  \"Span\"\n");
}

} // namespace
} // namespace nrq
