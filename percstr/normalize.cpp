#include "percstr/normalize.h"

#include <array>
#include <cstring>

namespace vrn {
namespace {

constexpr uint32_t kSmallestCapacity = 5;
constexpr uint32_t kMaxIntegerDigits = 3;
constexpr uint32_t kMaxDecimals = 6;

enum class CharClass : uint8_t { Blank, Digit, Point, Plus, Minus, End, Other };

// Bytes are judged as they stand: no locale, and 0x80 and above are Other.
constexpr std::array<CharClass, 256> BuildClassTable() {
    std::array<CharClass, 256> table{};
    table.fill(CharClass::Other);
    table['\t'] = table['\n'] = table[' '] = CharClass::Blank;  // CR is not blank
    for (int c = '0'; c <= '9'; ++c) table[c] = CharClass::Digit;
    table['.'] = table[','] = CharClass::Point;
    table['+'] = CharClass::Plus;
    table['-'] = CharClass::Minus;
    table['\0'] = CharClass::End;
    return table;
}
constexpr std::array<CharClass, 256> kClassTable = BuildClassTable();

constexpr CharClass ClassOf(unsigned char c) { return kClassTable[c]; }

enum class State : uint8_t { BetweenTerms, AfterSign, IntegerDigits, AfterPoint, Decimals, SkipTerm };

// What the machine does with the input after a cell of the table.
enum class Step : uint8_t {
    Next,      // the character is taken; read the next one
    PushBack,  // read the same character again, in the new state
    Stop,      // leave the machine
};

class Normaliser {
public:
    Normaliser(char* output, uint32_t capacity) : out_(output), limit_(capacity - 1) {}

    void Run(const unsigned char* input) {
        for (;;) {
            if (Remaining() == 0) {
                StopAtCapacity();
                break;
            }
            const Step step = Take(ClassOf(*input), static_cast<char>(*input));
            if (step == Step::Stop) break;
            if (step == Step::Next) ++input;
        }
        if (used_ == 0 && skippedZeros_ > 0) Emit('0');
    }

    uint32_t Length() const { return used_; }
    int32_t Errors() const { return static_cast<int32_t>(errors_); }

private:
    Step Take(CharClass cls, char c) {
        switch (state_) {
            case State::BetweenTerms: return BetweenTerms(cls, c);
            case State::AfterSign: return AfterSign(cls, c);
            case State::IntegerDigits: return IntegerDigits(cls, c);
            case State::AfterPoint: return AfterPoint(cls, c);
            case State::Decimals: return Decimals(cls, c);
            case State::SkipTerm: return SkipTerm(cls);
        }
        return Step::Stop;
    }

    Step BetweenTerms(CharClass cls, char c) {
        switch (cls) {
            case CharClass::Blank: return Step::Next;
            case CharClass::Digit:
                if (c == '0') {
                    ++skippedZeros_;
                    return Step::Next;
                }
                if (!Empty()) {
                    if (Remaining() < 2) return Step::Stop;
                    Emit('+');
                }
                return StartInteger(c);
            case CharClass::Point:
                if (Remaining() < (Empty() ? 2u : 3u)) return Step::Stop;
                if (!Empty()) Emit('+');
                return StartDecimals();
            case CharClass::Plus:
                // A leading plus is implied, so it isn't written.
                if (!Empty()) Emit('+');
                return StartSign();
            case CharClass::Minus:
                Emit('-');
                return StartSign();
            case CharClass::End: return Step::Stop;
            case CharClass::Other: return Error(Step::Next);
        }
        return Step::Stop;
    }

    // Invariant: the output is empty (a leading plus left no sign) or ends in the sign.
    Step AfterSign(CharClass cls, char c) {
        switch (cls) {
            case CharClass::Blank: return Step::Next;
            case CharClass::Digit:
                if (c == '0') return Step::Next;  // leading zero of the term
                return StartInteger(c);
            case CharClass::Point:
                if (Remaining() < 2) {
                    RemoveSign();
                    return Step::Stop;
                }
                return StartDecimals();
            case CharClass::Plus: ReplaceSign('+'); return Error(Step::Next);
            case CharClass::Minus: ReplaceSign('-'); return Error(Step::Next);
            case CharClass::End: RemoveSign(); return Step::Stop;
            case CharClass::Other: return Error(Step::Next);
        }
        return Step::Stop;
    }

    Step IntegerDigits(CharClass cls, char c) {
        switch (cls) {
            case CharClass::Blank: return Go(State::BetweenTerms, Step::Next);
            case CharClass::Digit:
                if (integerDigits_ >= kMaxIntegerDigits) return Skip();
                Emit(c);
                ++integerDigits_;
                return Step::Next;
            case CharClass::Point:
                Emit('.');
                decimals_ = 0;
                return Go(State::AfterPoint, Step::Next);
            case CharClass::Plus:
            case CharClass::Minus: return Go(State::BetweenTerms, Step::PushBack);
            case CharClass::End: return Step::Stop;
            case CharClass::Other: return Skip();
        }
        return Step::Stop;
    }

    // Invariant: the output ends in the point.
    Step AfterPoint(CharClass cls, char c) {
        switch (cls) {
            case CharClass::Blank:
            case CharClass::Plus:
            case CharClass::Minus: Remove(); return Go(State::BetweenTerms, Step::PushBack);
            case CharClass::Digit:
                Emit(c);
                decimals_ = 1;
                return Go(State::Decimals, Step::Next);
            case CharClass::Point: return Error(Step::Next);
            case CharClass::End: Remove(); return Step::Stop;
            case CharClass::Other: Remove(); return Skip();
        }
        return Step::Stop;
    }

    Step Decimals(CharClass cls, char c) {
        switch (cls) {
            case CharClass::Blank:
            case CharClass::Plus:
            case CharClass::Minus: return Go(State::BetweenTerms, Step::PushBack);
            case CharClass::Digit:
                if (decimals_ >= kMaxDecimals) return Skip();
                Emit(c);
                ++decimals_;
                return Step::Next;
            case CharClass::Point:
            case CharClass::Other: return Skip();
            case CharClass::End: return Step::Stop;
        }
        return Step::Stop;
    }

    Step SkipTerm(CharClass cls) {
        switch (cls) {
            case CharClass::Blank:
            case CharClass::Plus:
            case CharClass::Minus: return Go(State::BetweenTerms, Step::PushBack);
            case CharClass::Digit:
            case CharClass::Point:
            case CharClass::Other: return Error(Step::Next);
            case CharClass::End: return Step::Stop;
        }
        return Step::Stop;
    }

    // The capacity is used up: no sign or point may be left dangling.
    void StopAtCapacity() {
        if (state_ == State::AfterSign) RemoveSign();
        if (state_ == State::AfterPoint) Remove();
    }

    Step StartSign() {
        integerDigits_ = 0;
        return Go(State::AfterSign, Step::Next);
    }
    Step StartInteger(char digit) {
        Emit(digit);
        integerDigits_ = 1;
        return Go(State::IntegerDigits, Step::Next);
    }
    Step StartDecimals() {
        Emit('0');
        Emit('.');
        decimals_ = 0;
        return Go(State::AfterPoint, Step::Next);
    }
    Step Skip() {
        ++errors_;
        return Go(State::SkipTerm, Step::Next);
    }
    Step Error(Step step) {
        ++errors_;
        return step;
    }
    Step Go(State state, Step step) {
        state_ = state;
        return step;
    }

    uint32_t Remaining() const { return limit_ - used_; }
    bool Empty() const { return used_ == 0; }
    void Emit(char c) { out_[used_++] = c; }
    void Remove() { out_[--used_] = '\0'; }
    // A sign that a leading plus left unwritten has nothing to replace or remove.
    void ReplaceSign(char sign) {
        if (!Empty()) out_[used_ - 1] = sign;
    }
    void RemoveSign() {
        if (!Empty()) Remove();
    }

    char* out_;
    uint32_t limit_;  // capacity less the NUL
    uint32_t used_ = 0;
    State state_ = State::BetweenTerms;
    uint32_t errors_ = 0;  // counted unsigned so that no input can overflow it
    uint32_t integerDigits_ = 0;
    uint32_t decimals_ = 0;
    uint32_t skippedZeros_ = 0;
};

}  // namespace

int32_t PercStrNormalizeText(const char* input, char* output, uint32_t* length) {
    if (length == nullptr) return 0;
    const uint32_t capacity = *length;
    *length = 0;
    if (output == nullptr || capacity == 0) return 0;
    if (capacity < kSmallestCapacity || input == nullptr || input[0] == '\0') {
        output[0] = '\0';
        return 0;
    }
    std::memset(output, 0, capacity);
    Normaliser machine(output, capacity);
    machine.Run(reinterpret_cast<const unsigned char*>(input));
    *length = machine.Length();
    return machine.Errors();
}

}  // namespace vrn
