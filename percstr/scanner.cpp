#include "percstr/scanner.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace vrn {

namespace {

constexpr const char* kFatalTexts[] = {
    "out of dynamic memory in yy_scan_bytes()",
    "out of dynamic memory in yy_scan_buffer()",
    "bad buffer in yy_scan_bytes()",
    "out of dynamic memory in yy_create_buffer()",
    "fatal flex scanner internal error--no action found",
    "fatal flex scanner internal error--end of buffer missed",
    "fatal error - scanner input buffer overflow",
    "input in flex scanner failed",
};

}  // namespace

const char* ScanFatalText(ScanFatal condition) { return kFatalTexts[static_cast<int>(condition)]; }

void ReportScanFatal(ScanFatal condition) { std::fprintf(stderr, "%s\n", ScanFatalText(condition)); }

ScanBuffer* ScannerEngine::yy_scan_buffer(char* base, uint32_t size) {
    if (base == nullptr || size < 2 || base[size - 2] != 0 || base[size - 1] != 0) return nullptr;
    void* block = allocate_ ? allocate_(sizeof(ScanBuffer)) : std::malloc(sizeof(ScanBuffer));
    if (block == nullptr) {
        ReportScanFatal(ScanFatal::ScanBufferMemory);
        return nullptr;
    }
    auto* buffer = static_cast<ScanBuffer*>(block);
    buffer->inputStream = nullptr;
    buffer->characters = base;
    buffer->position = base;
    buffer->capacity = size - 2;
    buffer->characterCount = size - 2;
    buffer->owned = 0;
    buffer->interactive = 0;
    buffer->atLineStart = 1;
    buffer->fill = 0;
    buffer->status = kBufferNew;
    yy_switch_to_buffer(buffer);
    return buffer;
}

ScanBuffer* ScannerEngine::yy_scan_bytes(const char* bytes, uint32_t count) {
    if (count > std::numeric_limits<uint32_t>::max() - 2) {
        ReportScanFatal(ScanFatal::ScanBytesMemory);
        return nullptr;
    }
    const uint32_t size = count + 2;
    auto* copy = static_cast<char*>(allocate_ ? allocate_(size) : std::malloc(size));
    if (copy == nullptr) {
        ReportScanFatal(ScanFatal::ScanBytesMemory);
        return nullptr;
    }
    if (count > 0) std::memcpy(copy, bytes, count);
    copy[count] = copy[count + 1] = 0;
    ScanBuffer* buffer = yy_scan_buffer(copy, size);
    if (buffer == nullptr) {  // the record's allocation failed and was reported
        if (release_) release_(copy); else std::free(copy);
        return nullptr;
    }
    buffer->owned = 1;
    return buffer;
}

ScanBuffer* ScannerEngine::yy_scan_text(const char* text) {
    if (text == nullptr) return nullptr;
    const size_t length = std::strlen(text);
    if (length > std::numeric_limits<uint32_t>::max() - 2) {
        ReportScanFatal(ScanFatal::ScanBytesMemory);
        return nullptr;
    }
    return yy_scan_bytes(text, static_cast<uint32_t>(length));
}

void ScannerEngine::yy_release_buffer(ScanBuffer* buffer) {
    if (buffer == nullptr) return;
    if (buffer == currentBuffer_) currentBuffer_ = nullptr;
    Release release = release_ ? release_ : std::free;
    if (buffer->owned) release(buffer->characters);
    release(buffer);
}

void ScannerEngine::yy_switch_to_buffer(ScanBuffer* buffer) {
    if (buffer == currentBuffer_) return;
    if (currentBuffer_ != nullptr) {
        *readPosition_ = heldCharacter_;
        currentBuffer_->position = readPosition_;
        currentBuffer_->characterCount = bufferCharacters_;
    }
    currentBuffer_ = buffer;
    if (buffer != nullptr) LoadCurrentBuffer();
}

void ScannerEngine::LoadCurrentBuffer() {
    bufferCharacters_ = currentBuffer_->characterCount;
    tokenText_ = readPosition_ = currentBuffer_->position;
    heldCharacter_ = *readPosition_;
}

bool ScannerEngine::Prepare() noexcept {
    if (automaton_ != nullptr) return true;
    try {
        automaton_ = &automatonSource_();
    } catch (...) {
        return false;
    }
    return true;
}

int ScannerEngine::NextMatch() {
    if (firstCall_) {
        firstCall_ = 0;
        startState_ = ScanAutomaton::kStart;
        inputStream_ = stdin;
        outputStream_ = stdout;
    }
    // Every text is scanned from a buffer made current before; there is no
    // stream to fall back on.
    if (currentBuffer_ == nullptr || (automaton_ == nullptr && !Prepare())) return kEndOfInput;
    if (currentBuffer_->status == kBufferNew) currentBuffer_->status = kBufferScanning;

    *readPosition_ = heldCharacter_;
    char* const start = readPosition_;
    char* const end = currentBuffer_->characters + bufferCharacters_;  // the first of the two NULs
    const ScanAutomaton& automaton = *automaton_;

    uint16_t state = static_cast<uint16_t>(startState_);
    uint16_t acceptingState = 0;
    char* acceptingPosition = nullptr;
    for (char* p = start; p != end;) {
        state = automaton.Next(state, static_cast<unsigned char>(*p));
        if (state == ScanAutomaton::kDead) break;
        ++p;
        if (automaton.Rule(state) != 0) {
            acceptingState = state;
            acceptingPosition = p;
        }
    }
    lastAcceptingState_ = acceptingState;
    lastAcceptingPosition_ = acceptingPosition;

    if (acceptingPosition == nullptr) {
        if (start == end) return EndOfInput(end);
        // Only a rule table without a rule for every byte gets here.
        ReportScanFatal(ScanFatal::NoActionFound);
        readPosition_ = end;
        heldCharacter_ = 0;
        return EndOfInput(end);
    }
    tokenText_ = start;
    tokenLength_ = static_cast<uint32_t>(acceptingPosition - start);
    readPosition_ = acceptingPosition;
    heldCharacter_ = *acceptingPosition;
    *acceptingPosition = 0;
    return automaton.Rule(acceptingState);
}

// The end-of-buffer match covers the first final NUL; the read position
// stays on it, so every later request ends here again.
int ScannerEngine::EndOfInput(char* end) {
    currentBuffer_->status = kBufferEndSeen;
    tokenText_ = end;
    tokenLength_ = 1;
    readPosition_ = end;
    heldCharacter_ = 0;
    return kEndOfInput;
}

}  // namespace vrn
