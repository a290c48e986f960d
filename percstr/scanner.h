// The scanner engine shared by the three text scanners: input buffers over
// memory, the longest-match automaton, the held character behind the token
// text and the end-of-input rules. A scanner is one ScannerEngine object with
// its automaton, built once from its table of rows (pattern, action, token),
// and a token function that does the action of the row NextMatch() gives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
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

// The value of a token of digits and at most one point, 15 digits at most:
// the digits as an integer and the power of ten are exact doubles, so one
// division gives the double nearest to the decimal text, as the C locale's
// strtod does.
inline double DecimalValue(const char* text, uint32_t length) {
    static constexpr double kPowersOfTen[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7,
                                              1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    uint64_t digits = 0;
    const char* const end = text + length;
    const char* point = end - 1;  // no decimals unless there is a point
    for (const char* p = text; p != end; ++p) {
        const auto digit = static_cast<uint32_t>(static_cast<unsigned char>(*p) - '0');
        if (digit < 10) digits = digits * 10 + digit;
        else point = p;
    }
    return static_cast<double>(digits) / kPowersOfTen[end - point - 1];
}

// A pattern is a sequence of atoms, each optionally followed by ?, *, +,
// {m}, {m,} or {m,n}. Atoms: a literal byte; . for any byte; [set] or
// [^set] with ranges a-z; escapes \t \r \n \0 \xHH and \c for the character
// c itself. ignoreCase makes letters match either case.
struct ScanRule {
    const char* pattern;
    bool ignoreCase = false;
};

// One row of a scanner's table: its pattern, what its token function does
// with a match, and the token that gives, where the action has one.
template <class Action>
struct ScanRow {
    const char* pattern;
    Action action;
    int32_t token = 0;
    bool ignoreCase = false;
};

// An automaton's tables as the matching loop reads them.
struct ScanTables {
    const uint8_t* classOf = nullptr;  // per byte
    const uint16_t* next = nullptr;    // rows of 1 << rowShift entries, per state
    const uint16_t* rule = nullptr;    // per state
    uint32_t rowShift = 0;
    uint32_t firstAccepting = 0;       // the accepting states are numbered from here on
};

// The deterministic automaton of a rule table: state 0 is dead, state 1 the
// start. Rule(state) is the 1-based number of the first rule that the text
// up to that state matches, 0 when none does.
class ScanAutomaton {
public:
    template <class Row, size_t N>
    explicit ScanAutomaton(const Row (&rows)[N]) {
        std::vector<ScanRule> rules;
        for (const Row& row : rows) rules.push_back(ScanRule{row.pattern, row.ignoreCase});
        Build(rules);
    }

    static constexpr uint16_t kDead = 0;
    static constexpr uint16_t kStart = 1;

    // Rows are a power of two wide, so that a state's row is a shift away.
    [[nodiscard]] uint16_t Next(uint32_t state, unsigned char byte) const {
        return next_[(state << rowShift_) | classOf_[byte]];
    }
    [[nodiscard]] uint16_t Rule(uint32_t state) const { return rule_[state]; }
    [[nodiscard]] size_t StateCount() const { return rule_.size(); }
    [[nodiscard]] ScanTables Tables() const {
        return ScanTables{classOf_, next_.data(), rule_.data(), rowShift_, firstAccepting_};
    }
    // Faults of the rule table found while building; empty for a good table.
    [[nodiscard]] const std::vector<std::string>& Problems() const { return problems_; }

private:
    void Build(std::span<const ScanRule> rules);
    void PutAcceptingStatesLast(size_t rowWidth);

    uint8_t classOf_[256] = {};
    uint32_t rowShift_ = 0;
    uint32_t firstAccepting_ = 0;
    std::vector<uint16_t> next_;
    std::vector<uint16_t> rule_;
    std::vector<std::string> problems_;
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
    ~ScannerEngine() { DropSpareBlocks(); }

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

    // Where the buffer routines take their memory; tests make it fail. The
    // blocks kept from earlier texts go back to the old release first.
    void SetAllocator(Allocate allocate, Release release) {
        DropSpareBlocks();
        allocate_ = allocate;
        release_ = release;
    }

private:
    // A released block kept for the next text: a scan costs its two blocks
    // from the heap only when none of the right size is kept.
    struct SpareBlock {
        void* block = nullptr;
        size_t size = 0;
    };

    [[nodiscard]] void* Obtain(SpareBlock& spare, size_t size) {
        if (spare.block == nullptr || spare.size < size) return Allocated(size);
        void* block = spare.block;
        spare = {};
        return block;
    }
    void Keep(SpareBlock& spare, void* block, size_t size) {
        if (spare.block == nullptr) spare = {block, size};
        else KeepLarger(spare, block, size);
    }
    [[nodiscard]] void* Allocated(size_t size);
    void KeepLarger(SpareBlock& spare, void* block, size_t size);
    void DropSpareBlocks();
    void SaveCurrentBuffer();
    [[nodiscard]] bool Start();
    [[nodiscard]] int NoMatch(char* start);
    [[nodiscard]] int EndOfInput();

    AutomatonSource automatonSource_;
    ScanTables tables_;  // empty until the automaton is built
    Allocate allocate_ = nullptr;  // null: malloc
    Release release_ = nullptr;    // null: free
    SpareBlock spareRecord_;
    SpareBlock spareCharacters_;

    ScanBuffer* currentBuffer_ = nullptr;
    bool started_ = false;  // the current buffer is being scanned, with the automaton built
    char* readPosition_ = nullptr;
    char heldCharacter_ = 0;
    char* bufferEnd_ = nullptr;  // the first of the current buffer's two final NULs
    char* tokenText_ = nullptr;
    uint32_t tokenLength_ = 0;
};

// Copies are made in steps of this size, so that one kept block serves the
// next text of about the same length.
inline constexpr size_t kScanCopyGrain = 64;

inline size_t ScanCopyBlockSize(uint32_t count) {
    return (static_cast<size_t>(count) + 2 + kScanCopyGrain - 1) / kScanCopyGrain * kScanCopyGrain;
}

inline ScanBuffer* ScannerEngine::yy_scan_buffer(char* base, uint32_t size) {
    if (base == nullptr || size < 2 || base[size - 2] != 0 || base[size - 1] != 0) return nullptr;
    void* block = Obtain(spareRecord_, sizeof(ScanBuffer));
    if (block == nullptr) {
        ReportScanFatal(ScanFatal::ScanBufferMemory);
        return nullptr;
    }
    auto* buffer = static_cast<ScanBuffer*>(block);
    *buffer = ScanBuffer{nullptr, base, base, size - 2, size - 2, 0, 0, 1, 0, kBufferNew};
    yy_switch_to_buffer(buffer);
    return buffer;
}

inline ScanBuffer* ScannerEngine::yy_scan_bytes(const char* bytes, uint32_t count) {
    if (count > UINT32_MAX - 2) {
        ReportScanFatal(ScanFatal::ScanBytesMemory);
        return nullptr;
    }
    auto* copy = static_cast<char*>(Obtain(spareCharacters_, ScanCopyBlockSize(count)));
    if (copy == nullptr) {
        ReportScanFatal(ScanFatal::ScanBytesMemory);
        return nullptr;
    }
    if (count > 0) std::memcpy(copy, bytes, count);
    copy[count] = copy[count + 1] = 0;
    ScanBuffer* buffer = yy_scan_buffer(copy, count + 2);
    if (buffer == nullptr) {  // the record's allocation failed and was reported
        Keep(spareCharacters_, copy, ScanCopyBlockSize(count));
        return nullptr;
    }
    buffer->owned = 1;
    return buffer;
}

inline ScanBuffer* ScannerEngine::yy_scan_text(const char* text) {
    if (text == nullptr) return nullptr;
    const size_t length = std::strlen(text);
    if (length > UINT32_MAX - 2) {
        ReportScanFatal(ScanFatal::ScanBytesMemory);
        return nullptr;
    }
    return yy_scan_bytes(text, static_cast<uint32_t>(length));
}

inline void ScannerEngine::yy_release_buffer(ScanBuffer* buffer) {
    if (buffer == nullptr) return;
    if (buffer == currentBuffer_) {
        currentBuffer_ = nullptr;
        started_ = false;
    }
    if (buffer->owned) Keep(spareCharacters_, buffer->characters, ScanCopyBlockSize(buffer->capacity));
    Keep(spareRecord_, buffer, sizeof(ScanBuffer));
}

inline void ScannerEngine::yy_switch_to_buffer(ScanBuffer* buffer) {
    if (buffer == currentBuffer_) return;
    if (currentBuffer_ != nullptr) SaveCurrentBuffer();
    currentBuffer_ = buffer;
    started_ = false;
    if (buffer == nullptr) return;
    bufferEnd_ = buffer->characters + buffer->characterCount;
    tokenText_ = readPosition_ = buffer->position;
    heldCharacter_ = *readPosition_;
}

inline int ScannerEngine::NextMatch() {
    if (!started_ && !Start()) return kEndOfInput;

    char* const start = readPosition_;
    *start = heldCharacter_;
    char* const end = bufferEnd_;
    const uint8_t* const classOf = tables_.classOf;
    const uint16_t* const next = tables_.next;
    const uint32_t rowShift = tables_.rowShift;
    const uint32_t firstAccepting = tables_.firstAccepting;

    // The longest match: remember the last accepting state and where it ended.
    uint32_t state = ScanAutomaton::kStart;
    uint32_t accepted = 0;
    char* matchEnd = nullptr;
    for (char* p = start; p != end;) {
        state = next[(state << rowShift) | classOf[static_cast<unsigned char>(*p)]];
        if (state == ScanAutomaton::kDead) break;
        ++p;
        if (state >= firstAccepting) {
            accepted = state;
            matchEnd = p;
        }
    }
    if (matchEnd == nullptr) return NoMatch(start);

    tokenText_ = start;
    tokenLength_ = static_cast<uint32_t>(matchEnd - start);
    readPosition_ = matchEnd;
    heldCharacter_ = *matchEnd;
    *matchEnd = 0;
    return tables_.rule[accepted];
}

}  // namespace vrn
