#include "formula/record.h"

#include <gtest/gtest.h>

#include <string>

namespace vrn {
namespace {

TEST(PFormulaCode, PacksEachFieldWithinItsWidth) {
    struct Row {
        int32_t number;
        uint32_t position, length;
        PFormulaCode code;
    };
    const Row rows[] = {
        {0, 0, 0, 0},
        {-1, 5, 1, 0xFF010005u},
        {-9, 1, 3, 0xF7030001u},
        {-4, 0, 0, 0xFC000000u},
        {-12, 0xFFFF, 0xFF, 0xF4FFFFFFu},
        {-1, 0x12345, 0x1FF, 0xFFFF2345u},  // position and length keep their low bits only
        {-3, 70000, 300, 0xFD2C1170u},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(PFormulaMakeCode(row.number, row.position, row.length), row.code) << row.number;
    }
}

TEST(PFormulaErrorInfo, TakesACodeApart) {
    struct Row {
        PFormulaCode code;
        int32_t number;
        uint32_t position, length;
        std::string text;
    };
    const Row rows[] = {
        {0, 0, 0, 0, "No error; parse ok"},
        {0xFF010005u, -1, 5, 1, "Errore di sintassi nella formula"},
        {0xF7030001u, -9, 1, 3, "Moltiplicazione fuori rage; il valore deve essere compreso tra 000.1 e 300.0"},
        {0x01000000u, 1, 0, 0, "Unknown"},
        {0xFD000000u, -3, 0, 0, "Il buffer di output non \xE8 sufficientemente lungo"},
        {0xFB000000u, -5, 0, 0,
         "Errore di sintassi nell'arrotondamento\nPuo' essere Commerciale AC(n), per Difetto AD(n) e per "
         "eccesso AE(n)"},
        {0xF3000000u, -13, 0, 0, "Unknown"},
        {0x80000000u, -128, 0, 0, "Unknown"},
    };
    for (const Row& row : rows) {
        uint32_t position = 99, length = 99;
        const char* text = nullptr;
        EXPECT_EQ(PFormulaErrorInfo(row.code, &position, &length, &text), row.number);
        EXPECT_EQ(position, row.position);
        EXPECT_EQ(length, row.length);
        EXPECT_EQ(std::string(text), row.text);
    }
    EXPECT_EQ(PFormulaErrorInfo(0xF6020003u, nullptr, nullptr, nullptr), -10);
}

}  // namespace
}  // namespace vrn
