// The scanner engine shared by the three text scanners: input buffers over
// memory, the longest-match automaton, the held character behind the token
// text, the end-of-input rules and the token loop. A scanner is one
// ScannerEngine object with its automaton, built once from its table of rows
// (pattern, action, token), and a token function: NextToken over its rows,
// with what each of its actions does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <span>
#include <utility>
#include <string>
#include <type_traits>
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

// An automaton's tables as the matching loop reads them. A state is known by
// the offset of its row in rows: the offsets of the next states by byte
// class, and the state's rule (1-based, 0: none) in column ruleColumn. The
// dead state's row is at 0.
struct ScanTables {
    const uint8_t* classOf = nullptr;  // per byte
    const uint16_t* rows = nullptr;
    uint32_t start = 0;
    uint32_t firstAccepting = 0;  // rows from here on are accepting states
    uint32_t ruleColumn = 0;
};

// Calls act(row) with the row of a rule number (1-based) of a constexpr row
// table, the row known to the compiler in each case: the switch on its action
// folds away. What act gives, or otherwise for a number outside the table.
// Forced inline, as is NextToken: left to the compiler, the loops around it
// came out a few instructions longer per match.
template <const auto& Rows, class Result, class Act, size_t... I>
[[gnu::always_inline]] inline Result ForRow(int rule, Result otherwise, Act act, std::index_sequence<I...>) {
    Result result = otherwise;
    (void)((rule == static_cast<int>(I + 1) && (result = act(Rows[I]), true)) || ...);
    return result;
}
template <const auto& Rows, class Result, class Act>
[[gnu::always_inline]] inline Result ForRow(int rule, Result otherwise, Act act) {
    return ForRow<Rows>(rule, otherwise, act, std::make_index_sequence<std::size(Rows)>{});
}

// The deterministic automaton of a rule table, built by the subset
// construction over classes of bytes that every rule treats alike.
class ScanAutomaton {
public:
    template <class Row, size_t N>
    explicit ScanAutomaton(const Row (&rows)[N]) {
        std::vector<ScanRule> rules;
        for (const Row& row : rows) rules.push_back(ScanRule{row.pattern, row.ignoreCase});
        Build(rules);
    }

    [[nodiscard]] ScanTables Tables() const {
        return ScanTables{classOf_, rows_.data(), start_, firstAccepting_, ruleColumn_};
    }
    // Faults of the rule table found while building; empty for a good table.
    [[nodiscard]] const std::vector<std::string>& Problems() const { return problems_; }

private:
    void Build(std::span<const ScanRule> rules);
    void LayOutRows(const std::vector<uint16_t>& next, const std::vector<uint16_t>& rules, size_t classCount);

    uint8_t classOf_[256] = {};
    std::vector<uint16_t> rows_;
    uint32_t start_ = 0;
    uint32_t firstAccepting_ = 0;
    uint32_t ruleColumn_ = 0;
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
    [[nodiscard]] char* NewCopy(uint32_t count);
    void KeepCopy(char* characters);
    [[nodiscard]] void* Allocated(size_t size);
    void KeepLarger(SpareBlock& spare, void* block, size_t size);
    void DropSpareBlocks();
    void SaveCurrentBuffer();
    [[nodiscard]] bool Start();
    // The end-of-buffer match covers the first final NUL; the read position
    // stays on it, so every later request ends here again.
    [[nodiscard]] int EndOfInput() {
        currentBuffer_->status = kBufferEndSeen;
        tokenText_ = bufferEnd_;
        tokenLength_ = 1;
        readPosition_ = bufferEnd_;
        heldCharacter_ = 0;
        return kEndOfInput;
    }

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

// What a row's action gives for a match that makes no token: the loop goes
// on with the next match.
inline constexpr int32_t kNoToken = -1000;

// The token loop of a scanner over its constexpr row table: the next token of
// the scanner's current buffer, 0 at the end of the input. act(row) does the
// action of the row that matched, known to the compiler in each case, and
// gives its token or kNoToken. location, a TokenLocation* or nullptr for a
// scanner without one, moves over every matched text, skipped ones included.
// Always inlined, so that each scanner's loop is its own code with its rows
// folded in.
template <const auto& Rows, class Where, class Act>
[[gnu::always_inline]] inline int32_t NextToken(ScannerEngine& scanner, Where location, Act act) {
    for (;;) {
        const int rule = scanner.NextMatch();
        if (rule == kEndOfInput) return 0;
        if constexpr (!std::is_same_v<Where, std::nullptr_t>) StepLocation(location, scanner.TokenLength());
        const int32_t token = ForRow<Rows>(rule, kNoToken, act);
        if (token != kNoToken) return token;
    }
}

// A copy's block starts with its own size, so that a block kept for the next
// text is known by its true size whatever text it held last; blocks come in
// steps of kScanCopyGrain, so that one serves texts of about the same length.
inline constexpr size_t kScanCopyHeader = sizeof(size_t);
inline constexpr size_t kScanCopyGrain = 64;

inline char* ScannerEngine::NewCopy(uint32_t count) {
    const size_t needed = (kScanCopyHeader + count + 2 + kScanCopyGrain - 1) / kScanCopyGrain * kScanCopyGrain;
    SpareBlock copy = spareCharacters_;
    if (copy.block != nullptr && copy.size >= needed) {
        spareCharacters_ = {};
    } else {
        copy = {Allocated(needed), needed};
        if (copy.block == nullptr) return nullptr;
    }
    std::memcpy(copy.block, &copy.size, kScanCopyHeader);
    return static_cast<char*>(copy.block) + kScanCopyHeader;
}

inline void ScannerEngine::KeepCopy(char* characters) {
    char* block = characters - kScanCopyHeader;
    size_t size = 0;
    std::memcpy(&size, block, kScanCopyHeader);
    Keep(spareCharacters_, block, size);
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
    char* copy = NewCopy(count);
    if (copy == nullptr) {
        ReportScanFatal(ScanFatal::ScanBytesMemory);
        return nullptr;
    }
    if (count > 0) std::memcpy(copy, bytes, count);
    copy[count] = copy[count + 1] = 0;
    ScanBuffer* buffer = yy_scan_buffer(copy, count + 2);
    if (buffer == nullptr) {  // the record's allocation failed and was reported
        KeepCopy(copy);
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
    if (buffer->owned) KeepCopy(buffer->characters);
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
    const uint16_t* const rows = tables_.rows;
    const uint32_t firstAccepting = tables_.firstAccepting;

    // The longest match: remember the last accepting state and where it ended.
    uint32_t state = tables_.start;
    uint32_t accepted = 0;
    char* matchEnd = nullptr;
    for (char* p = start; p != end;) {
        state = rows[state + classOf[static_cast<unsigned char>(*p)]];
        if (state == 0) break;
        ++p;
        if (state >= firstAccepting) {
            accepted = state;
            matchEnd = p;
        }
    }
    if (matchEnd == nullptr) {
        // Only a rule table without a rule for every byte fails before the end.
        if (start != end) ReportScanFatal(ScanFatal::NoActionFound);
        return EndOfInput();
    }

    tokenText_ = start;
    tokenLength_ = static_cast<uint32_t>(matchEnd - start);
    readPosition_ = matchEnd;
    heldCharacter_ = *matchEnd;
    *matchEnd = 0;
    return tables_.rows[accepted + tables_.ruleColumn];
}

}  // namespace vrn
