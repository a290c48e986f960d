#include "percstr/engine/scanner.h"

#include <cstdlib>
#include <cstring>

#include "percstr/engine/build_once.h"

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

void* ScannerEngine::Allocated(size_t size) { return allocate_ ? allocate_(size) : std::malloc(size); }

// The larger of the kept block and this one stays.
void ScannerEngine::KeepLarger(SpareBlock& spare, void* block, size_t size) {
    Release release = release_ ? release_ : std::free;
    if (spare.size >= size) {
        release(block);
        return;
    }
    release(spare.block);
    spare = {block, size};
}

void ScannerEngine::DropSpareBlocks() {
    Release release = release_ ? release_ : std::free;
    for (SpareBlock* spare : {&spareRecord_, &spareCharacters_}) {
        if (spare->block != nullptr) release(spare->block);
        *spare = {};
    }
}

// The buffer being left keeps where the scan stood, with its held byte back in place.
void ScannerEngine::SaveCurrentBuffer() {
    *readPosition_ = heldCharacter_;
    currentBuffer_->position = readPosition_;
    currentBuffer_->characterCount = static_cast<uint32_t>(bufferEnd_ - currentBuffer_->characters);
}

bool ScannerEngine::Prepare() noexcept {
    if (tables_.rows != nullptr) return true;
    const ScanAutomaton* automaton = BuiltOrNull(automatonSource_);
    if (automaton == nullptr || automaton->Problems().size() > 0) return false;
    tables_ = automaton->Tables();
    return true;
}

// The first token request on the current buffer.
bool ScannerEngine::Start() {
    // Every text is scanned from a buffer made current before; there is no
    // stream to fall back on.
    if (currentBuffer_ == nullptr || !Prepare()) return false;
    if (currentBuffer_->status == kBufferNew) currentBuffer_->status = kBufferScanning;
    started_ = true;
    return true;
}

}  // namespace vrn
