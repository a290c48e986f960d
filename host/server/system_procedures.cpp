#include "host/server/system_procedures.h"

#include <cstring>

#include "frame/srv.h"
#include "host/exec/text.h"

namespace vrn::server {

namespace {

// One row of the ODBC type catalogue: the types the procedures take, and the
// common ones a driver asks about before binding a parameter.
struct TypeRow {
    const char* name;
    int16_t dataType;  // the ODBC SQL type
    int32_t precision;
    const char* prefix;
    const char* suffix;
    const char* createParams;
    int16_t caseSensitive, searchable, unsignedAttribute, minimumScale, maximumScale, sqlDataType;
    int32_t radix;
    int16_t userType;
};

constexpr int16_t kNone = -1;  // a NULL cell

constexpr TypeRow kTypeCatalogue[] = {
    {"char", 1, 8000, "'", "'", "length", 0, 3, kNone, kNone, kNone, 1, 0, 1},
    {"numeric", 2, 38, nullptr, nullptr, "precision,scale", 0, 2, 0, 0, 38, 2, 10, 10},
    {"decimal", 3, 38, nullptr, nullptr, "precision,scale", 0, 2, 0, 0, 38, 3, 10, 24},
    {"int", 4, 10, nullptr, nullptr, nullptr, 0, 2, 0, 0, 0, 4, 10, 7},
    {"smallint", 5, 5, nullptr, nullptr, nullptr, 0, 2, 0, 0, 0, 5, 10, 6},
    {"float", 6, 53, nullptr, nullptr, nullptr, 0, 2, 0, kNone, kNone, 6, 2, 8},
    {"real", 7, 24, nullptr, nullptr, nullptr, 0, 2, 0, kNone, kNone, 7, 2, 23},
    {"varchar", 12, 8000, "'", "'", "max length", 0, 3, kNone, kNone, kNone, 12, 0, 2},
    {"datetime", 93, 23, "'", "'", nullptr, 0, 3, kNone, 3, 3, 9, 0, 12},
    {"text", -1, 2147483647, "'", "'", nullptr, 0, 1, kNone, kNone, kNone, -1, 0, 19},
    {"binary", -2, 8000, "0x", nullptr, "length", 0, 2, kNone, kNone, kNone, -2, 0, 3},
    {"varbinary", -3, 8000, "0x", nullptr, "max length", 0, 2, kNone, kNone, kNone, -3, 0, 4},
    {"image", -4, 2147483647, "0x", nullptr, nullptr, 0, 0, kNone, kNone, kNone, -4, 0, 20},
    {"bigint", -5, 19, nullptr, nullptr, nullptr, 0, 2, 0, 0, 0, -5, 10, 0},
    {"tinyint", -6, 3, nullptr, nullptr, nullptr, 0, 2, 1, 0, 0, -6, 10, 5},
    {"bit", -7, 1, nullptr, nullptr, nullptr, 0, 2, kNone, 0, 0, -7, 0, 16},
    {"nchar", -8, 4000, "N'", "'", "length", 0, 3, kNone, kNone, kNone, -8, 0, 0},
    {"nvarchar", -9, 4000, "N'", "'", "max length", 0, 3, kNone, kNone, kNone, -9, 0, 0},
    {"ntext", -10, 1073741823, "N'", "'", nullptr, 0, 1, kNone, kNone, kNone, -10, 0, 0},
};

host::Bytes Small(int16_t v) { return {static_cast<uint8_t>(v), static_cast<uint8_t>(static_cast<uint16_t>(v) >> 8)}; }
host::Bytes Int(int32_t v) {
    host::Bytes b(4);
    for (int i = 0; i < 4; ++i) b[static_cast<size_t>(i)] = static_cast<uint8_t>(static_cast<uint32_t>(v) >> (8 * i));
    return b;
}
std::optional<host::Bytes> Text(const char* text) {
    if (!text) return std::nullopt;
    return host::Bytes(text, text + std::strlen(text));
}
std::optional<host::Bytes> SmallOrNull(int16_t v) {
    if (v == kNone) return std::nullopt;
    return Small(v);
}

host::Column Column(const char* name, int type, int length) {
    host::Column c;
    c.name = name;
    c.destType = c.srcType = type;
    c.destLength = c.srcLength = length;
    return c;
}

// The integer parameter called name, or the one at position index.
std::optional<int32_t> IntegerParam(const std::vector<host::Param>& params, const std::vector<std::string>& names,
                                    const char* name, size_t index) {
    const host::Param* found = nullptr;
    for (size_t i = 0; i < params.size(); ++i) {
        const std::string n = i < names.size() ? exec::LowerText(names[i]) : std::string();
        if (n == name || (n.empty() && i == index)) found = &params[i];
    }
    if (!found || found->isNull || found->value.empty() || found->value.size() > 4) return std::nullopt;
    int32_t v = 0;
    for (size_t i = 0; i < found->value.size(); ++i) v |= static_cast<int32_t>(found->value[i]) << (8 * i);
    if (found->value.size() == 2) v = static_cast<int16_t>(v);
    return v;
}

void Finish(host::CallResult& r, size_t rows) {
    r.dones.push_back({SRV_DONE_MORE | SRV_DONE_COUNT, 0, static_cast<int32_t>(rows)});
    r.order.push_back(host::EventKind::Done);
}

host::CallResult TypeInfo(const std::vector<host::Param>& params, const std::vector<std::string>& names) {
    host::CallResult r;
    host::ResultSet set;
    set.columns = {
        Column("TYPE_NAME", SRVNVARCHAR, 256),   Column("DATA_TYPE", SRVINT2, 2),
        Column("PRECISION", SRVINT4, 4),         Column("LITERAL_PREFIX", SRVBIGVARCHAR, 32),
        Column("LITERAL_SUFFIX", SRVBIGVARCHAR, 32), Column("CREATE_PARAMS", SRVBIGVARCHAR, 32),
        Column("NULLABLE", SRVINT2, 2),          Column("CASE_SENSITIVE", SRVINT2, 2),
        Column("SEARCHABLE", SRVINT2, 2),        Column("UNSIGNED_ATTRIBUTE", SRVINT2, 2),
        Column("MONEY", SRVINT2, 2),             Column("AUTO_INCREMENT", SRVINT2, 2),
        Column("LOCAL_TYPE_NAME", SRVNVARCHAR, 256), Column("MINIMUM_SCALE", SRVINT2, 2),
        Column("MAXIMUM_SCALE", SRVINT2, 2),     Column("SQL_DATA_TYPE", SRVINT2, 2),
        Column("SQL_DATETIME_SUB", SRVINT2, 2),  Column("NUM_PREC_RADIX", SRVINT4, 4),
        Column("INTERVAL_PRECISION", SRVINT2, 2), Column("USERTYPE", SRVINT2, 2),
    };
    // Nullable SMALLINT and INT columns: the described types say how a NULL travels.
    for (host::Column& c : set.columns) {
        if (c.destType == SRVINT2 || c.destType == SRVINT4) c.destType = c.srcType = SRVINTN;
    }
    const std::optional<int32_t> wanted = IntegerParam(params, names, "@data_type", 0);
    for (const TypeRow& t : kTypeCatalogue) {
        if (wanted && *wanted != 0 && *wanted != t.dataType) continue;
        auto wide = [](const char* s) {
            host::Bytes b;
            for (const char* p = s; *p; ++p) b.push_back(static_cast<uint8_t>(*p)), b.push_back(0);
            return b;
        };
        set.rows.push_back({wide(t.name), Small(t.dataType), Int(t.precision), Text(t.prefix), Text(t.suffix),
                            Text(t.createParams), Small(1), Small(t.caseSensitive), Small(t.searchable),
                            SmallOrNull(t.unsignedAttribute), Small(0), SmallOrNull(t.unsignedAttribute == kNone ? kNone : 0),
                            wide(t.name), SmallOrNull(t.minimumScale), SmallOrNull(t.maximumScale), Small(t.sqlDataType),
                            t.sqlDataType == 9 ? std::optional<host::Bytes>(Small(3)) : std::nullopt,
                            t.radix ? std::optional<host::Bytes>(Int(t.radix)) : std::nullopt, std::nullopt,
                            Small(t.userType)});
    }
    for (size_t i = 0; i < set.columns.size(); ++i) r.order.push_back(host::EventKind::Describe);
    for (size_t i = 0; i < set.rows.size(); ++i) r.order.push_back(host::EventKind::Row);
    r.columns = set.columns;
    r.rows = set.rows;
    const size_t rows = set.rows.size();
    r.resultSets.push_back(std::move(set));
    Finish(r, rows);
    return r;
}

// OLE DB asks whether the login may only read: it may not.
host::CallResult ReadOnlyUser() {
    host::CallResult r;
    host::ResultSet set;
    set.columns = {Column("", SRVBIGCHAR, 1)};
    set.rows.push_back({host::Bytes{'N'}});
    r.order = {host::EventKind::Describe, host::EventKind::Row};
    r.columns = set.columns;
    r.rows = set.rows;
    r.resultSets.push_back(std::move(set));
    Finish(r, 1);
    return r;
}

}  // namespace

std::optional<host::CallResult> CallSystemProcedure(const std::string& name, const std::vector<host::Param>& params,
                                                    const std::vector<std::string>& names) {
    if (name == "sp_datatype_info_100" || name == "sp_datatype_info_90" || name == "sp_datatype_info") {
        return TypeInfo(params, names);
    }
    if (name == "sp_oledb_ro_usrname") return ReadOnlyUser();
    return std::nullopt;
}

}  // namespace vrn::server
