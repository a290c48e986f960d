#include "tasks/job_record_posix.h"

#include <array>
#include <cstring>

#include "frame/convert.h"

namespace vrn::tasks::jobs {
namespace {

// "VRNJOB", a byte no text file starts with that, and the format version.
constexpr uint8_t kMagic[8] = {'V', 'R', 'N', 'J', 'O', 'B', 0x1A, 1};

// Header offsets.
constexpr size_t kSizeAt = 8;
constexpr size_t kCrcAt = 12;
constexpr size_t kIdentityAt = 16;
constexpr size_t kLastRunAt = 24;  // eight 16-bit fields
constexpr size_t kExitCodeAt = 40;
constexpr size_t kStartResultAt = 44;
constexpr size_t kRunFlagsAt = 48;
constexpr size_t kPidAt = 52;
constexpr size_t kPidStartAt = 56;

constexpr std::array<uint32_t, 256> MakeCrcTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int k = 0; k < 8; ++k) c = (c & 1) != 0 ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        table[i] = c;
    }
    return table;
}
constexpr std::array<uint32_t, 256> kCrcTable = MakeCrcTable();

uint64_t Get(const uint8_t* p, size_t bytes) {
    uint64_t v = 0;
    for (size_t i = 0; i < bytes; ++i) v |= uint64_t{p[i]} << (8 * i);
    return v;
}

void Put(uint8_t* p, uint64_t v, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// The checksum of an image, its own field counted as zero.
uint32_t ImageCrc(const uint8_t* data, size_t size) {
    static constexpr uint8_t kZero[4] = {};
    uint32_t c = 0xFFFFFFFFu;
    auto feed = [&c](const uint8_t* p, size_t n) {
        for (size_t i = 0; i < n; ++i) c = kCrcTable[(c ^ p[i]) & 0xFF] ^ (c >> 8);
    };
    feed(data, kCrcAt);
    feed(kZero, 4);
    feed(data + kCrcAt + 4, size - kCrcAt - 4);
    return c ^ 0xFFFFFFFFu;
}

class Writer {
public:
    void Integer(uint64_t v, size_t bytes) {
        const size_t at = out_.size();
        out_.resize(at + bytes);
        Put(out_.data() + at, v, bytes);
    }
    void Bytes(const uint8_t* p, size_t n) { out_.insert(out_.end(), p, p + n); }
    void Text(const std::u16string& text) {
        Integer(text.size(), 4);
        for (char16_t c : text) Integer(c, 2);
    }
    std::vector<uint8_t>& Out() { return out_; }

private:
    std::vector<uint8_t> out_;
};

class Reader {
public:
    Reader(const uint8_t* p, size_t n) : p_(p), n_(n) {}
    bool Integer(uint64_t* v, size_t bytes) {
        if (n_ - at_ < bytes) return false;
        *v = Get(p_ + at_, bytes);
        at_ += bytes;
        return true;
    }
    template <class T>
    bool Field(T* v) {
        uint64_t raw = 0;
        if (!Integer(&raw, sizeof(T))) return false;
        *v = static_cast<T>(raw);
        return true;
    }
    bool Text(std::u16string* text) {
        uint32_t units = 0;
        if (!Field(&units) || (n_ - at_) / 2 < units) return false;
        text->resize(units);
        for (char16_t& c : *text) Field(&c);
        return true;
    }
    bool Bytes(std::vector<uint8_t>* out, size_t count) {
        if (n_ - at_ < count) return false;
        out->assign(p_ + at_, p_ + at_ + count);
        at_ += count;
        return true;
    }
    bool AtEnd() const { return at_ == n_; }

private:
    const uint8_t* p_;
    size_t n_;
    size_t at_ = 0;
};

void WriteTrigger(Writer& w, const TASK_TRIGGER& t) {
    for (uint16_t v : {t.cbTriggerSize, t.Reserved1, t.wBeginYear, t.wBeginMonth, t.wBeginDay, t.wEndYear,
                       t.wEndMonth, t.wEndDay, t.wStartHour, t.wStartMinute}) {
        w.Integer(v, 2);
    }
    for (uint32_t v : {t.MinutesDuration, t.MinutesInterval, t.rgFlags, static_cast<uint32_t>(t.TriggerType)}) {
        w.Integer(v, 4);
    }
    // The union as the platform lays it out: eight bytes, whatever the type.
    uint8_t type[8];
    std::memcpy(type, &t.Type, sizeof type);
    w.Bytes(type, sizeof type);
    w.Integer(t.Reserved2, 2);
    w.Integer(t.wRandomMinutesInterval, 2);
}

bool ReadTrigger(Reader& r, TASK_TRIGGER* t) {
    std::vector<uint8_t> type;
    uint32_t triggerType = 0;
    const bool ok = r.Field(&t->cbTriggerSize) && r.Field(&t->Reserved1) && r.Field(&t->wBeginYear) &&
                    r.Field(&t->wBeginMonth) && r.Field(&t->wBeginDay) && r.Field(&t->wEndYear) &&
                    r.Field(&t->wEndMonth) && r.Field(&t->wEndDay) && r.Field(&t->wStartHour) &&
                    r.Field(&t->wStartMinute) && r.Field(&t->MinutesDuration) && r.Field(&t->MinutesInterval) &&
                    r.Field(&t->rgFlags) && r.Field(&triggerType) && r.Bytes(&type, sizeof t->Type) &&
                    r.Field(&t->Reserved2) && r.Field(&t->wRandomMinutesInterval);
    if (!ok) return false;
    t->TriggerType = static_cast<int32_t>(triggerType);
    std::memcpy(&t->Type, type.data(), sizeof t->Type);
    return true;
}

}  // namespace

std::vector<uint8_t> Encode(const Record& record) {
    Writer w;
    w.Bytes(kMagic, sizeof kMagic);
    w.Out().resize(kHeaderSize);
    const Definition& d = record.definition;
    w.Integer(d.flags, 4);
    w.Integer(d.maxRunTime, 4);
    w.Integer(d.priority, 4);
    w.Integer(d.idleMinutes, 2);
    w.Integer(d.deadlineMinutes, 2);
    w.Integer(d.account.has_value() ? 1 : 0, 1);
    w.Integer(d.passwordGiven ? 1 : 0, 1);
    for (const std::u16string* text :
         {&d.application, &d.parameters, &d.workingDirectory, &d.comment, &d.creator}) {
        w.Text(*text);
    }
    w.Text(d.account.value_or(u""));
    w.Integer(d.workItemData.size(), 2);
    w.Bytes(d.workItemData.data(), d.workItemData.size());
    w.Integer(d.triggers.size(), 2);
    for (const TASK_TRIGGER& t : d.triggers) WriteTrigger(w, t);

    std::vector<uint8_t>& out = w.Out();
    Put(out.data() + kSizeAt, out.size(), 4);
    Put(out.data() + kIdentityAt, record.identity, 8);
    SetImageRunState(out.data(), out.size(), record.run);
    return std::move(out);
}

std::optional<Record> Decode(const uint8_t* data, size_t size) {
    Record record;
    record.identity = ImageIdentity(data, size);
    if (record.identity == 0) return std::nullopt;
    record.run = ImageRunState(data);

    Reader r(data + kHeaderSize, size - kHeaderSize);
    Definition& d = record.definition;
    uint8_t hasAccount = 0, passwordGiven = 0;
    std::u16string account;
    uint16_t dataSize = 0, triggerCount = 0;
    bool ok = r.Field(&d.flags) && r.Field(&d.maxRunTime) && r.Field(&d.priority) && r.Field(&d.idleMinutes) &&
              r.Field(&d.deadlineMinutes) && r.Field(&hasAccount) && r.Field(&passwordGiven) &&
              r.Text(&d.application) && r.Text(&d.parameters) && r.Text(&d.workingDirectory) &&
              r.Text(&d.comment) && r.Text(&d.creator) && r.Text(&account) && r.Field(&dataSize) &&
              r.Bytes(&d.workItemData, dataSize) && r.Field(&triggerCount);
    for (uint16_t i = 0; ok && i < triggerCount; ++i) {
        TASK_TRIGGER t{};
        ok = ReadTrigger(r, &t);
        d.triggers.push_back(t);
    }
    if (!ok || !r.AtEnd() || hasAccount > 1 || passwordGiven > 1) return std::nullopt;
    if (hasAccount != 0) d.account = std::move(account);
    d.passwordGiven = passwordGiven != 0;
    return record;
}

uint64_t ImageIdentity(const uint8_t* data, size_t size) {
    if (size < kHeaderSize || size > kMaxFileSize || std::memcmp(data, kMagic, sizeof kMagic) != 0 ||
        Get(data + kSizeAt, 4) != size || Get(data + kCrcAt, 4) != ImageCrc(data, size)) {
        return 0;
    }
    return Get(data + kIdentityAt, 8);
}

RunState ImageRunState(const uint8_t* data) {
    RunState run;
    uint16_t* fields[8] = {&run.lastRun.year,   &run.lastRun.month,  &run.lastRun.dayOfWeek, &run.lastRun.day,
                           &run.lastRun.hour,   &run.lastRun.minute, &run.lastRun.second,    &run.lastRun.milliseconds};
    for (size_t i = 0; i < 8; ++i) *fields[i] = static_cast<uint16_t>(Get(data + kLastRunAt + 2 * i, 2));
    run.exitCode = static_cast<uint32_t>(Get(data + kExitCodeAt, 4));
    run.startResult = static_cast<int32_t>(Get(data + kStartResultAt, 4));
    run.flags = static_cast<uint32_t>(Get(data + kRunFlagsAt, 4));
    run.pid = static_cast<int32_t>(Get(data + kPidAt, 4));
    run.pidStart = Get(data + kPidStartAt, 8);
    return run;
}

void SetImageRunState(uint8_t* data, size_t size, const RunState& run) {
    const SystemTime& t = run.lastRun;
    const uint16_t fields[8] = {t.year, t.month, t.dayOfWeek, t.day, t.hour, t.minute, t.second, t.milliseconds};
    for (size_t i = 0; i < 8; ++i) Put(data + kLastRunAt + 2 * i, fields[i], 2);
    Put(data + kExitCodeAt, run.exitCode, 4);
    Put(data + kStartResultAt, static_cast<uint32_t>(run.startResult), 4);
    Put(data + kRunFlagsAt, run.flags, 4);
    Put(data + kPidAt, static_cast<uint32_t>(run.pid), 4);
    Put(data + kPidStartAt, run.pidStart, 8);
    Put(data + kCrcAt, ImageCrc(data, size), 4);
}

std::optional<std::string> ToUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        uint32_t c = text[i];
        if (c >= 0xD800 && c <= 0xDFFF) {
            if (c > 0xDBFF || i + 1 == text.size() || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF) {
                return std::nullopt;
            }
            c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
        }
        AppendUtf8(out, c);
    }
    return out;
}

std::optional<std::u16string> ToUtf16(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const uint8_t b = static_cast<uint8_t>(text[i]);
        const size_t length = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 0;
        if (length == 0 || text.size() - i < length) return std::nullopt;
        uint32_t c = length == 1 ? b : b & (0x7F >> length);
        for (size_t k = 1; k < length; ++k) {
            const uint8_t next = static_cast<uint8_t>(text[i + k]);
            if ((next & 0xC0) != 0x80) return std::nullopt;
            c = (c << 6) | (next & 0x3F);
        }
        static constexpr uint32_t kLeast[5] = {0, 0, 0x80, 0x800, 0x10000};
        if (c < kLeast[length] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return std::nullopt;
        if (c >= 0x10000) {
            out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
        i += length;
    }
    return out;
}

}  // namespace vrn::tasks::jobs
