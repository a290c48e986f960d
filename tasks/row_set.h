// A row set as one table of columns: each column's shape beside the way a
// row's value is found, so describing and sending walk the same table.
#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "frame/convert.h"
#include "frame/procedure.h"
#include "frame/srv.h"

namespace vrn::tasks {

// Integer columns take no length: the host reads their source type's width.
inline constexpr int kNoLength = -1;

// One column's value in one row, and its length in bytes (0: NULL).
struct ColumnValue {
    const void* data;
    int length = kNoLength;
};

// A value made for the row alone (a date) is made in *made, which lives until
// the row is sent.
template <class Row>
using ColumnReader = ColumnValue (*)(const Row& row, SqlDateTime* made);

// ---- Values of the usual kinds, read from a member of the row.

template <class Member>
struct MemberOf;
template <class Class, class Type>
struct MemberOf<Type Class::*> {
    using Row = Class;
};
template <auto member>
using RowOf = typename MemberOf<decltype(member)>::Row;

template <auto member>
ColumnValue IntegerValue(const RowOf<member>& row, SqlDateTime*) {
    static_assert(std::is_integral_v<std::remove_reference_t<decltype(row.*member)>>);
    return {&(row.*member)};
}

// A narrow text the row owns; an absent one is NULL.
template <auto member>
ColumnValue TextValue(const RowOf<member>& row, SqlDateTime*) {
    const char* text = (row.*member).get();
    return {text, text != nullptr ? static_cast<int>(std::strlen(text)) : 0};
}

// A system time; one with no date is NULL.
template <auto member>
ColumnValue TimeValue(const RowOf<member>& row, SqlDateTime* made) {
    int32_t isNull = 0;
    SystemTimeToSqlDateTime(row.*member, made, &isNull);
    return {made, isNull ? 0 : static_cast<int>(sizeof *made)};
}

// ---- Describing and sending.

// srv_describe of each column in turn.
template <class Column, size_t N>
void DescribeRow(SRV_PROC* srvproc, const Column (&columns)[N]) {
    for (const Column& column : columns) DescribeColumns(srvproc, &column.shape, 1);
}

// Where a column's length goes among the host's calls: with its value, or
// after every value is set.
enum class LengthsGo { kWithEachValue, kAfterTheValues };

// Sets every column's value, and its length where it has one, then sends the row.
template <class Column, size_t N, class Row>
void SendRow(SRV_PROC* srvproc, const Column (&columns)[N], const Row& row, LengthsGo lengths) {
    SqlDateTime made[N]{};
    ColumnValue values[N];
    for (size_t i = 0; i < N; ++i) {
        const int column = static_cast<int>(i + 1);
        values[i] = columns[i].value(row, &made[i]);
        (void)srv_setcoldata(srvproc, column, const_cast<void*>(values[i].data));
        if (lengths == LengthsGo::kWithEachValue && values[i].length != kNoLength) {
            (void)srv_setcollen(srvproc, column, values[i].length);
        }
    }
    if (lengths == LengthsGo::kAfterTheValues) {
        for (size_t i = 0; i < N; ++i) {
            if (values[i].length != kNoLength) (void)srv_setcollen(srvproc, static_cast<int>(i + 1), values[i].length);
        }
    }
    (void)srv_sendrow(srvproc);
}

}  // namespace vrn::tasks
