// The scanner engine shared by the three text scanners: input buffers over
// memory, the longest-match automaton, the held character behind the token
// text and the end-of-input rules. A scanner is one ScannerEngine object with
// its automaton (built once from a table of ScanRule) and a token function
// that switches on the rule number NextMatch() gives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

namespace vrn {

struct ScanBuffer {
    FILE* inputStream;        // null for a buffer over memory
    char* characters;         // the input, followed by two NUL bytes
    char* position;           // where scanning stands while the buffer isn't current
    uint32_t capacity;        // usable size of characters, without the two NULs
    uint32_t characterCount;  // input bytes now in characters
    int32_t owned;            // 1: characters is freed with the record
    int32_t interactive;      // always 0 here
    int32_t atLineStart;      // 1 at creation
    int32_t fill;             // 0: nothing is read when the end is reached
    int32_t status;           // kBufferNew, kBufferScanning, kBufferEndSeen
};

inline constexpr int32_t kBufferNew = 0;
inline constexpr int32_t kBufferScanning = 1;
inline constexpr int32_t kBufferEndSeen = 2;

// Where a token lies: 0-based byte offsets, lastColumn one past the token.
struct TokenLocation {
    int32_t firstLine;
    int32_t firstColumn;
    int32_t lastLine;
    int32_t lastColumn;
};

// The location step of scanners 1 and 3: the token starts where the last
// one ended and covers tokenLength bytes.
inline void StepLocation(TokenLocation* location, uint32_t tokenLength) {
    location->firstColumn = location->lastColumn;
    location->lastColumn += static_cast<int32_t>(tokenLength);
}

// One token rule. The pattern is a sequence of atoms, each optionally
// followed by ?, *, +, {m}, {m,} or {m,n}. Atoms: a literal byte; . for any
// byte; [set] or [^set] with ranges a-z; escapes \t \r \n \0 \xHH and \c for
// the character c itself. ignoreCase makes letters match either case.
struct ScanRule {
    const char* pattern;
    bool ignoreCase = false;
};

// The deterministic automaton of a rule table: state 0 is dead, state 1 the
// start. Rule(state) is the 1-based number of the first rule that the text
// up to that state matches, 0 when none does.
class ScanAutomaton {
public:
    explicit ScanAutomaton(std::span<const ScanRule> rules);

    static constexpr uint16_t kDead = 0;
    static constexpr uint16_t kStart = 1;

    [[nodiscard]] uint16_t Next(uint16_t state, unsigned char byte) const {
        return next_[static_cast<size_t>(state) * classCount_ + classOf_[byte]];
    }
    [[nodiscard]] uint16_t Rule(uint16_t state) const { return rule_[state]; }
    [[nodiscard]] size_t StateCount() const { return rule_.size(); }
    // Faults of the rule table found while building; empty for a good table.
    [[nodiscard]] const std::vector<std::string>& Problems() const { return problems_; }

private:
    uint8_t classOf_[256] = {};
    size_t classCount_ = 1;
    std::vector<uint16_t> next_;
    std::vector<uint16_t> rule_;
    std::vector<std::string> problems_;
};

// NextMatch's result behind the last input byte.
inline constexpr int kEndOfInput = 0;

// One scanner instance: its process-wide variables are the members. Serves
// one text at a time; whoever makes a buffer holds the instance's lock until
// the buffer is released.
class ScannerEngine {
public:
    using AutomatonSource = const ScanAutomaton& (*)();
    using Allocate = void* (*)(size_t bytes);
    using Release = void (*)(void* block);

    // automaton is asked once, at the first token request of the process.
    explicit constexpr ScannerEngine(AutomatonSource automaton) : automatonSource_(automaton) {}
    ScannerEngine(const ScannerEngine&) = delete;
    ScannerEngine& operator=(const ScannerEngine&) = delete;

    // A buffer over the caller's block of size bytes, whose last two bytes
    // must be NUL; the scan writes into the block. Null when the block is
    // refused or the record can't be allocated. The new buffer becomes current.
    [[nodiscard]] ScanBuffer* yy_scan_buffer(char* base, uint32_t size);
    // A buffer over a copy of count bytes (any bytes), which it owns.
    [[nodiscard]] ScanBuffer* yy_scan_bytes(const char* bytes, uint32_t count);
    [[nodiscard]] ScanBuffer* yy_scan_text(const char* text);
    // Nothing for null. Releasing the current buffer leaves none current.
    void yy_release_buffer(ScanBuffer* buffer);
    void yy_switch_to_buffer(ScanBuffer* buffer);

    // Builds the automaton now rather than at the first token request, so
    // that running out of memory for it is the caller's to report: false then.
    [[nodiscard]] bool Prepare() noexcept;

    // Matches the next token of the current buffer and returns its rule
    // number, or kEndOfInput behind the last byte (again on every later call).
    // The token text is NUL-terminated until the next call.
    [[nodiscard]] int NextMatch();

    [[nodiscard]] const char* TokenText() const { return tokenText_; }
    [[nodiscard]] uint32_t TokenLength() const { return tokenLength_; }
    [[nodiscard]] ScanBuffer* CurrentBuffer() const { return currentBuffer_; }
    [[nodiscard]] int32_t StartState() const { return startState_; }

    // Where the buffer routines take their memory; tests make it fail.
    void SetAllocator(Allocate allocate, Release release) {
        allocate_ = allocate;
        release_ = release;
    }

private:
    void LoadCurrentBuffer();
    [[nodiscard]] int EndOfInput(char* end);

    AutomatonSource automatonSource_;
    const ScanAutomaton* automaton_ = nullptr;
    Allocate allocate_ = nullptr;  // null: malloc
    Release release_ = nullptr;    // null: free

    int32_t firstCall_ = 1;
    int32_t startState_ = 0;
    ScanBuffer* currentBuffer_ = nullptr;
    char* readPosition_ = nullptr;
    char heldCharacter_ = 0;
    uint32_t bufferCharacters_ = 0;
    char* tokenText_ = nullptr;
    uint32_t tokenLength_ = 0;
    int32_t lastAcceptingState_ = 0;
    char* lastAcceptingPosition_ = nullptr;
    FILE* inputStream_ = nullptr;
    FILE* outputStream_ = nullptr;
};

// The engine's fatal conditions. Each writes its text and a newline to
// standard error; the engine goes no further with the text.
enum class ScanFatal {
    ScanBytesMemory,
    ScanBufferMemory,
    ScanBytesBadBuffer,
    CreateBufferMemory,
    NoActionFound,
    EndOfBufferMissed,
    InputBufferOverflow,
    InputFailed,
};
[[nodiscard]] const char* ScanFatalText(ScanFatal condition);
void ReportScanFatal(ScanFatal condition);

}  // namespace vrn
