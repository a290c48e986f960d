#include "host/exec/report.h"

#include <cstdio>
#include <map>
#include <optional>
#include <ostream>

namespace vrn::exec {

namespace {

constexpr uint16_t kDoneCount = 0x0010;

using Cell = std::optional<std::string>;

// Column headers, dashes, rows; numbers to the right. Lines carry no trailing blanks.
void PrintTable(std::ostream& out, const std::vector<std::string>& headers, const std::vector<bool>& numeric,
                const std::vector<std::vector<Cell>>& rows) {
    std::vector<size_t> widths;
    for (const std::string& h : headers) widths.push_back(DisplayWidth(h));
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size() && i < widths.size(); ++i) {
            widths[i] = std::max(widths[i], DisplayWidth(row[i].value_or("NULL")));
        }
    }
    auto line = [&](auto cellAt, bool alignNumbers) {
        std::string text;
        for (size_t i = 0; i < widths.size(); ++i) {
            const std::string cell = cellAt(i);
            const std::string pad(widths[i] - DisplayWidth(cell), ' ');
            if (i > 0) text += ' ';
            text += alignNumbers && numeric[i] ? pad + cell : cell + pad;
        }
        text.erase(text.find_last_not_of(' ') + 1);
        out << text << '\n';
    };
    line([&](size_t i) { return headers[i]; }, false);
    line([&](size_t i) { return std::string(widths[i], '-'); }, false);
    for (const auto& row : rows) {
        line([&](size_t i) { return i < row.size() ? row[i].value_or("NULL") : std::string(); }, true);
    }
}

std::string RowsAffected(long long count) {
    return "(" + std::to_string(count) + (count == 1 ? " row affected)" : " rows affected)");
}

std::string HeaderOf(const std::string& name) { return name.empty() ? "(No column name)" : name; }

// A cell of a row set, read by the type the procedure described its source as.
Cell ShowCell(const host::Column& column, const std::optional<host::Bytes>& bytes, bool exact) {
    if (!bytes) return std::nullopt;
    return ShowByCode(column.srcType, *bytes, exact);
}

class HumanReporter final : public Reporter {
public:
    explicit HumanReporter(std::ostream& out) : out_(out) {}

    void Exec(const ExecReport& report) override {
        const host::CallResult& result = *report.result;
        size_t messageIndex = 0, setIndex = 0;
        bool setOpen = false;
        auto flushSet = [&] {
            if (setOpen) PrintSet(result.resultSets[setIndex++]);
            setOpen = false;
        };
        size_t doneIndex = 0;
        for (host::EventKind kind : result.order) {
            switch (kind) {
            case host::EventKind::Message: PrintMessage(result.messages[messageIndex++]); break;
            case host::EventKind::Describe: setOpen = true; break;
            case host::EventKind::Done: {
                flushSet();
                const host::Done& done = result.dones[doneIndex++];
                if (done.status & kDoneCount) out_ << '\n' << RowsAffected(done.count) << '\n';
                break;
            }
            default: break;
            }
        }
        flushSet();
        for (const OutputVariable& output : report.outputs) {
            out_ << output.name << " = " << ShowLiteral(output.value) << '\n';
        }
        out_ << "(return status = " << result.returnCode << ")\n\n";
    }

    void Select(const std::vector<std::string>& headers, const std::vector<Value>& values) override {
        std::vector<std::string> shownHeaders;
        std::vector<bool> numeric;
        std::vector<Cell> row;
        for (size_t i = 0; i < values.size(); ++i) {
            shownHeaders.push_back(HeaderOf(headers[i]));
            numeric.push_back(IsNumericCode(values[i].type.code));
            row.push_back(ShowPlain(values[i]));
        }
        PrintTable(out_, shownHeaders, numeric, {row});
        out_ << '\n' << RowsAffected(1) << "\n\n";
    }

    // PRINT shows a value's text as it is, line breaks too; NULL prints an empty line.
    void Print(const Value& value) override {
        if (value.isNull) {
            out_ << '\n';
        } else if (value.type.family == Family::Char || value.type.family == Family::Text) {
            out_ << ShowCp1252(value.bytes, true) << '\n';
        } else if (value.type.family == Family::NChar) {
            out_ << ShowUtf16(value.bytes, true) << '\n';
        } else {
            out_ << ShowPlain(value) << '\n';
        }
    }

private:
    // Information shows as its text alone, anything else with its number, as a client shows it.
    void PrintMessage(const host::Message& m) {
        if (m.type != kInfoMessage) {
            out_ << "Msg " << m.number << ", Level " << int{m.msgClass} << ", State " << int{m.state} << '\n';
        }
        out_ << ShowCp1252(host::Bytes(m.text.begin(), m.text.end()), true) << '\n';
    }

    void PrintSet(const host::ResultSet& set) {
        std::vector<std::string> headers;
        std::vector<bool> numeric;
        for (const host::Column& c : set.columns) {
            headers.push_back(HeaderOf(c.name));
            numeric.push_back(IsNumericCode(c.destType));
        }
        std::vector<std::vector<Cell>> rows;
        for (const host::Row& row : set.rows) {
            std::vector<Cell> cells;
            for (size_t i = 0; i < row.size() && i < set.columns.size(); ++i) {
                cells.push_back(ShowCell(set.columns[i], row[i], false));
            }
            rows.push_back(std::move(cells));
        }
        PrintTable(out_, headers, numeric, rows);
    }

    static constexpr int kInfoMessage = 1;  // srv_sendmsg's informational kind
    std::ostream& out_;
};

std::string JsonString(const std::string& utf8) {
    std::string out = "\"";
    for (char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c == '\r') {
            out += "\\r";
        } else if (byte < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string JsonCell(const Cell& cell) { return cell ? JsonString(*cell) : "null"; }

class JsonReporter final : public Reporter {
public:
    explicit JsonReporter(std::ostream& out) : out_(out) {}

    void Exec(const ExecReport& report) override {
        const host::CallResult& r = *report.result;
        std::string j = "{\"proc\":" + JsonString(report.procedure) + ",\"return\":" + std::to_string(r.returnCode);
        j += ",\"messages\":[";
        for (size_t i = 0; i < r.messages.size(); ++i) {
            const host::Message& m = r.messages[i];
            const host::Bytes bytes(m.text.begin(), m.text.end());
            j += (i ? "," : "") + std::string("{\"type\":") + std::to_string(m.type) +
                 ",\"number\":" + std::to_string(m.number) + ",\"class\":" + std::to_string(m.msgClass) +
                 ",\"state\":" + std::to_string(m.state) + ",\"text\":" + JsonString(Cp1252ToUtf8(bytes)) +
                 ",\"hex\":" + JsonString(Hex(bytes)) + "}";
        }
        j += "],\"outputs\":{";
        std::map<int, const host::OutputValue*> lastDelivery;
        for (const host::OutputValue& o : r.outputs) lastDelivery[o.param] = &o;
        bool first = true;
        for (const auto& [param, o] : lastDelivery) {
            const SqlType& type = report.parameterTypes.at(static_cast<size_t>(param) - 1);
            j += (first ? "" : ",") + JsonString(std::to_string(param)) + ":{\"type\":" + std::to_string(type.code) +
                 ",\"null\":" + (o->isNull ? "true" : "false") + ",\"length\":" + std::to_string(o->value.size()) +
                 ",\"hex\":" + JsonString(Hex(o->value)) + ",\"value\":" +
                 (o->isNull ? "null" : JsonString(ShowByCode(type.code, o->value, true, type.scale))) + "}";
            first = false;
        }
        j += "},\"done\":[";
        for (size_t i = 0; i < r.dones.size(); ++i) {
            const host::Done& d = r.dones[i];
            j += (i ? "," : "") + std::string("{\"status\":") + std::to_string(d.status) +
                 ",\"info\":" + std::to_string(d.info) + ",\"count\":" + std::to_string(d.count) + "}";
        }
        j += "],\"resultsets\":[";
        for (size_t s = 0; s < r.resultSets.size(); ++s) {
            const host::ResultSet& set = r.resultSets[s];
            j += (s ? "," : "") + std::string("{\"columns\":[");
            for (size_t c = 0; c < set.columns.size(); ++c) {
                const host::Column& col = set.columns[c];
                j += (c ? "," : "") + std::string("{\"name\":") + JsonString(col.name) +
                     ",\"type\":" + std::to_string(col.destType) + ",\"width\":" + std::to_string(col.destLength) + "}";
            }
            j += "],\"rows\":[";
            for (size_t k = 0; k < set.rows.size(); ++k) {
                j += k ? ",[" : "[";
                for (size_t c = 0; c < set.rows[k].size() && c < set.columns.size(); ++c) {
                    j += (c ? "," : "") + JsonCell(ShowCell(set.columns[c], set.rows[k][c], true));
                }
                j += "]";
            }
            j += "]}";
        }
        out_ << j << "]" << Events(r) << "}\n";
    }

    void Select(const std::vector<std::string>& headers, const std::vector<Value>& values) override {
        std::string j = "{\"select\":{\"columns\":[";
        std::string row;
        for (size_t i = 0; i < values.size(); ++i) {
            j += (i ? "," : "") + std::string("{\"name\":") + JsonString(headers[i]) +
                 ",\"type\":" + std::to_string(values[i].type.code) +
                 ",\"width\":" + std::to_string(values[i].MaxLength()) + "}";
            row += (i ? "," : "") + JsonCell(ShowExact(values[i]));
        }
        out_ << j << "],\"rows\":[[" << row << "]]}}\n";
    }

    void Print(const Value& value) override { out_ << "{\"print\":" << JsonCell(ShowExact(value)) << "}\n"; }

private:
    // Every delivery in the order it happened, each naming what it delivered:
    // a message or done by its place in its list, an output by its parameter,
    // a described column by its name, a row by its place among the call's rows.
    static std::string Events(const host::CallResult& r) {
        std::string j = ",\"events\":[";
        size_t messages = 0, outputs = 0, dones = 0, columns = 0, rows = 0;
        for (size_t i = 0; i < r.order.size(); ++i) {
            j += i ? ",{" : "{";
            switch (r.order[i]) {
            case host::EventKind::Message: j += "\"message\":" + std::to_string(messages++); break;
            case host::EventKind::Output: j += "\"output\":" + std::to_string(r.outputs[outputs++].param); break;
            case host::EventKind::Done: j += "\"done\":" + std::to_string(dones++); break;
            case host::EventKind::Describe: j += "\"describe\":" + JsonString(r.columns[columns++].name); break;
            case host::EventKind::Row: j += "\"row\":" + std::to_string(rows++); break;
            }
            j += "}";
        }
        return j + "]";
    }

    std::ostream& out_;
};

}  // namespace

std::unique_ptr<Reporter> MakeHumanReporter(std::ostream& out) { return std::make_unique<HumanReporter>(out); }
std::unique_ptr<Reporter> MakeJsonReporter(std::ostream& out) { return std::make_unique<JsonReporter>(out); }

}  // namespace vrn::exec
