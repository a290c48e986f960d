// The host stand-in's C++ API: build one call with raw parameters, invoke an
// export of the loaded library by name, and see everything the call sent back.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

typedef struct srv_proc SRV_PROC;  // the same type as in frame/srv.h

namespace vrn::host {

using Bytes = std::vector<uint8_t>;

struct Param {
    uint8_t type = 0;
    uint32_t maxLength = 0;
    Bytes value;  // actualLength is value.size()
    bool isNull = false;
    bool isOutput = false;
};

// Parameters as the server hands them over for the common T-SQL types.
Param VarChar(std::string_view text, uint32_t maxLength = 0);  // 167; maxLength 0: the text's length (at least 1)
Param Char(std::string_view text, uint32_t n);                 // 175, padded with blanks to n
Param Int(int32_t value);                                      // 38, 4 bytes
Param SmallInt(int16_t value);                                 // 52, 2 bytes
Param TinyInt(uint8_t value);                                  // 48, 1 byte
Param Bit(bool value);                                         // 104, 1 byte
Param Float(double value);                                     // 109, 8 bytes
Param Real(float value);                                       // 109, 4 bytes
Param NVarChar(std::u16string_view text, uint32_t maxLength = 0);  // 231, UTF-16LE; maxLength 0: 2 x length (at least 2)
Param NChar(std::u16string_view text, uint32_t n);                  // 239, padded with blanks to n characters
Param Text(std::string_view text);                             // 35, maxLength the text's length
Param VarBinary(const Bytes& bytes, uint32_t maxLength = 0);   // 165; maxLength 0: the length (at least 1)
Param Null(uint8_t type, uint32_t maxLength);                  // a NULL of that type
Param Output(Param p);                                         // the same, passed as OUTPUT

struct Message {
    int type = 0;
    int32_t number = 0;
    uint8_t msgClass = 0;
    uint8_t state = 0;
    bool rpcNameNull = true;
    std::string rpcName;
    int rpcNameLength = 0;
    uint16_t lineNumber = 0;
    std::string text;  // the bytes as sent (Windows-1252)
    int length = 0;    // msglen as passed (-1: NUL-terminated)
};

struct OutputValue {
    int param = 0;  // 1-based
    Bytes value;
    bool isNull = false;
};

struct Done {
    uint16_t status = 0;
    uint16_t info = 0;
    int32_t count = 0;
};

struct Column {
    std::string name;
    int32_t destType = 0;
    int32_t destLength = 0;
    int32_t srcType = 0;
    int32_t srcLength = 0;
};

using Row = std::vector<std::optional<Bytes>>;  // nullopt: NULL (length 0)

// One row set: the columns described together and the rows sent after them,
// up to the next srv_senddone.
struct ResultSet {
    std::vector<Column> columns;
    std::vector<Row> rows;
};

enum class EventKind { Message, Output, Done, Describe, Row };

struct CallResult {
    int32_t returnCode = 0;
    std::vector<Message> messages;
    std::vector<OutputValue> outputs;
    std::vector<Done> dones;
    std::vector<Column> columns;        // of all row sets, in order
    std::vector<Row> rows;              // of all row sets, in order
    std::vector<ResultSet> resultSets;  // the same, set by set
    std::vector<EventKind> order;  // every delivery, in the order it happened
    // The last value delivered to OUTPUT parameter n, if any.
    const OutputValue* OutputOf(int n) const;
};

struct CallOptions {
    std::optional<std::u16string> instanceName;  // what srv_pfieldex gives for the instance name
    bool failParamInfo = false;                  // srv_paraminfo answers 0 for every parameter
    // Runs right after srv_paraminfo has copied a value out and right before
    // srv_paramsetoutput takes one in: a test can hold two calls there at
    // once, so that whatever buffer they share gets overwritten in between.
    std::function<void()> onValueTransfer;
};

// Runs any procedure-shaped function over one call record (frame tests use it).
CallResult Invoke(const std::function<int32_t(::SRV_PROC*)>& procedure, std::vector<Param> params,
                  const CallOptions& options = {});

class Library {
public:
    // Loads the shared library (dlopen). Throws std::runtime_error when it can't.
    explicit Library(const std::string& path);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    bool Has(const std::string& exportName) const;
    // Calls a procedure export with one call record; throws std::runtime_error for an unknown export.
    CallResult Call(const std::string& exportName, std::vector<Param> params, const CallOptions& options = {}) const;
    // The same, or nothing when the library has no such export.
    std::optional<CallResult> CallIfExported(const std::string& exportName, std::vector<Param> params,
                                             const CallOptions& options = {}) const;
    // Calls an export that takes no argument (the version exports).
    int32_t CallNoArgs(const std::string& exportName) const;

private:
    void* handle_;
};

// Path of libvrn: $VRN_LIB, else beside the running executable, else in the
// folder above it (the build tree keeps tests and tools one level down).
std::string DefaultLibraryPath();

}  // namespace vrn::host
