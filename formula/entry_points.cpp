#include "formula/entry_points.h"

#include <cstdint>
#include <cstring>

#include "formula/formula_parser.h"
#include "formula/formula_scanner.h"
#include "formula/normal_form.h"

namespace vrn {

namespace {

// The text, and for the in-place route the caller's block that is scanned as it is.
struct Input {
    const char* text;
    char* block;
    uint32_t length;
};

// Releases the scan buffer on every way out.
class ScanGuard {
public:
    explicit ScanGuard(ScanBuffer* buffer) : buffer_(buffer) {}
    ~ScanGuard() { PFormulaScanner.yy_release_buffer(buffer_); }
    ScanGuard(const ScanGuard&) = delete;
    ScanGuard& operator=(const ScanGuard&) = delete;

private:
    ScanBuffer* buffer_;
};

ScanBuffer* MakeScanBuffer(const Input& input, bool inPlace) {
    if (inPlace) return PFormulaScanner.yy_scan_buffer(input.block, input.length);
    if (input.text == nullptr) return nullptr;
    return PFormulaScanner.yy_scan_bytes(input.text, input.length);
}

PFormulaCode Fault(int32_t number) { return PFormulaMakeCode(number, 0, 0); }

PFormulaCode Evaluate(double* value, const Input& input, bool inPlace, bool withNormalForm, char* normalForm,
                      uint32_t normalFormSize) {
    PFormulaRecord record{};
    record.text = input.text;
    record.length = input.length;
    record.buffer = inPlace ? 1 : 0;
    if (withNormalForm) {
        record.writeNormalForm = 1;
        record.normalForm = normalForm;
        record.normalFormSize = normalForm ? normalFormSize : 0;
    }

    if (input.length == 0) {
        if (record.normalFormSize >= 1) normalForm[0] = '\0';
        return 0;
    }
    if (input.length > kPFormulaMaxLength) return Fault(kPFormulaTooLong);
    if (withNormalForm && record.normalFormSize < PFormulaNormalFormSize(input.length)) {
        return Fault(kPFormulaOutputTooShort);
    }
    if (!PFormulaPrepare()) return Fault(kPFormulaScanBuffer);
    ScanBuffer* buffer = MakeScanBuffer(input, inPlace);
    if (buffer == nullptr) return Fault(kPFormulaScanBuffer);
    const ScanGuard release(buffer);

    if (withNormalForm) std::memset(normalForm, 0, record.normalFormSize);
    if (value) record.value = *value;
    (void)PFormulaParse(&record);  // the record's error tells how it went
    if (record.errorCode == 0 && value) *value = record.value;
    return PFormulaCodeOf(record);
}

// A text too long for 32 bits still counts as too long.
uint32_t LengthOf(const char* text) {
    const size_t length = text ? std::strlen(text) : 0;
    return length > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(length);
}

}  // namespace

PFormulaCode PFormulaEvalCounted(double* value, const char* text, uint32_t length) {
    return Evaluate(value, {text, nullptr, length}, false, false, nullptr, 0);
}

PFormulaCode PFormulaEvalBuffer(double* value, char* text, uint32_t length) {
    return Evaluate(value, {text, text, length}, true, false, nullptr, 0);
}

PFormulaCode PFormulaEvalText(double* value, const char* text) {
    return Evaluate(value, {text, nullptr, LengthOf(text)}, false, false, nullptr, 0);
}

PFormulaCode PFormulaNormalizeCounted(double* value, const char* text, uint32_t length, char* normalForm,
                                      uint32_t normalFormSize) {
    return Evaluate(value, {text, nullptr, length}, false, true, normalForm, normalFormSize);
}

PFormulaCode PFormulaNormalizeBuffer(double* value, char* text, uint32_t length, char* normalForm,
                                     uint32_t normalFormSize) {
    return Evaluate(value, {text, text, length}, true, true, normalForm, normalFormSize);
}

PFormulaCode PFormulaNormalizeText(double* value, const char* text, char* normalForm, uint32_t normalFormSize) {
    return Evaluate(value, {text, nullptr, LengthOf(text)}, false, true, normalForm, normalFormSize);
}

}  // namespace vrn
