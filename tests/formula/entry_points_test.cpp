#include "formula/entry_points.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "formula/formula_scanner.h"
#include "formula/normal_form.h"

namespace vrn {
namespace {

constexpr PFormulaCode kTooLong = 0xFC000000u, kNoScanBuffer = 0xFE000000u, kOutputTooShort = 0xFD000000u;

std::string Repeat(const std::string& piece, size_t times) {
    std::string text;
    for (size_t i = 0; i < times; ++i) text += piece;
    return text;
}

// A text as the procedure hands it over: a block with its two final NULs.
std::string Block(const std::string& text) { return text + std::string(2, '\0'); }

TEST(PFormulaEntryPoints, LengthLimitsAndBlocks) {
    double value = 100;
    EXPECT_EQ(PFormulaEvalCounted(&value, "garbage", 0), 0u);
    const std::string thousand = Repeat("+1", 500);
    EXPECT_EQ(PFormulaEvalCounted(&value, thousand.data(), 1000), 0u);
    EXPECT_EQ(value, 600);
    EXPECT_EQ(PFormulaEvalText(&value, (thousand + " ").c_str()), kTooLong);

    // A block counts its two NULs: 998 bytes of text at most.
    std::string block = Block(Repeat("+1", 499));
    EXPECT_EQ(PFormulaEvalBuffer(&value, block.data(), 1000), 0u);
    block = " " + block;
    EXPECT_EQ(PFormulaEvalBuffer(&value, block.data(), 1001), kTooLong);

    char one[1] = {0}, unterminated[4] = {'+', '1', 0, '1'};
    EXPECT_EQ(PFormulaEvalBuffer(&value, one, 1), kNoScanBuffer);
    EXPECT_EQ(PFormulaEvalBuffer(&value, unterminated, 4), kNoScanBuffer);
    EXPECT_EQ(PFormulaEvalCounted(&value, nullptr, 4), kNoScanBuffer);
    EXPECT_EQ(value, 600 + 499);
    EXPECT_EQ(PFormulaEvalText(nullptr, "+5"), 0u);
}

TEST(PFormulaEntryPoints, OutputBlockIsTestedBeforeTheParse) {
    std::vector<char> normalForm(64, 'Z');
    double value = 1;
    EXPECT_EQ(PFormulaNormalizeCounted(&value, "123456789", 9, normalForm.data(), 18), kOutputTooShort);
    EXPECT_EQ(normalForm[0], 'Z');
    EXPECT_EQ(PFormulaNormalizeCounted(&value, "123456789", 9, normalForm.data(), 19), PFormulaMakeCode(-12, 0, 9));
    normalForm.assign(64, 'Z');
    EXPECT_EQ(PFormulaNormalizeCounted(&value, "5", 0, normalForm.data(), 0), 0u);
    EXPECT_EQ(normalForm[0], 'Z') << "no room, nothing written";
    EXPECT_EQ(PFormulaNormalizeCounted(&value, "5", 0, normalForm.data(), 1), 0u);
    EXPECT_EQ(normalForm[0], '\0');
    EXPECT_EQ(PFormulaNormalizeText(&value, "5", nullptr, 100), kOutputTooShort);

    normalForm.assign(64, 'Z');  // the block is cleared whole before the parse
    EXPECT_EQ(PFormulaNormalizeText(nullptr, "5", normalForm.data(), 64), 0u);
    EXPECT_EQ(std::string(normalForm.data()), "+5 ");
    EXPECT_EQ(normalForm[63], '\0');
}

// Where the rule for the output block falls short, the operation that doesn't
// fit ends the parse with -3 at its item instead of going missing; the room
// the procedure gives holds every normal form of the longest texts.
TEST(PFormulaEntryPoints, NoOperationIsLostForLackOfRoom) {
    const struct {
        std::string text;
        PFormulaCode code;
        std::string kept;
    } rows[] = {
        {Repeat("1%", 7), PFormulaMakeCode(-3, 12, 2), Repeat("+1% ", 6)},
        {".1.1.1.1", PFormulaMakeCode(-3, 6, 2), Repeat("+0.1 ", 3)},
        {Repeat("1%", 6), 0, Repeat("+1% ", 6)},
    };
    for (const auto& row : rows) {
        std::string block = Block(row.text);
        const uint32_t length = static_cast<uint32_t>(block.size());
        std::vector<char> normalForm(PFormulaNormalFormSize(length));
        double value = 100;
        EXPECT_EQ(PFormulaNormalizeBuffer(&value, block.data(), length, normalForm.data(),
                                          static_cast<uint32_t>(normalForm.size())),
                  row.code)
            << row.text;
        EXPECT_EQ(std::string(normalForm.data()), row.kept);
        EXPECT_EQ(value == 100, row.code != 0);
    }
    for (const std::string& text : {Repeat(".1", 499), Repeat("1%", 499), Repeat("1+", 498) + "1",
                                    "1" + Repeat("-.1", 332) + "1", Repeat("=.1", 332) + "1"}) {
        std::string block = Block(text);
        const uint32_t length = static_cast<uint32_t>(block.size());
        ASSERT_LE(length, kPFormulaMaxLength);
        std::vector<char> room(PFormulaNormalFormRoom(length));
        EXPECT_EQ(PFormulaNormalizeBuffer(nullptr, block.data(), length, room.data(), static_cast<uint32_t>(room.size())),
                  0u)
            << text.substr(0, 20);
        EXPECT_GE(std::string(room.data()).size(), text.size()) << text.substr(0, 20);
    }
}

TEST(PFormulaEntryPoints, AScanBufferThatCantBeMadeIsMinusTwo) {
    PFormulaScanner.SetAllocator([](size_t) -> void* { return nullptr; }, nullptr);
    double value = 100;
    std::string block = Block("+5");
    const PFormulaCode codes[] = {PFormulaEvalCounted(&value, "+5", 2), PFormulaEvalBuffer(&value, block.data(), 4)};
    PFormulaScanner.SetAllocator(nullptr, nullptr);
    EXPECT_EQ(codes[0], kNoScanBuffer);
    EXPECT_EQ(codes[1], kNoScanBuffer);
    EXPECT_EQ(value, 100);
}

}  // namespace
}  // namespace vrn
