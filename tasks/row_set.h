// A row set as one table of columns: each column's shape beside the way a
// row's value is found, so describing and sending walk the same table.
#pragma once

#include <cstddef>
#include <cstring>
#include <iterator>
#include <type_traits>
#include <utility>

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
    for (const Column& column : columns) DescribeColumn(srvproc, column.shape);
}

// Where a column's length goes among the host's calls: with its value, or
// after every value is set.
enum class LengthsGo { kWithEachValue, kAfterTheValues };

// Sets every column's value, and its length where it has one, then sends the
// row. Columns is a constexpr table: each value is read by a call the
// compiler knows.
template <const auto& Columns, class Row>
void SendRow(SRV_PROC* srvproc, const Row& row, LengthsGo lengths) {
    constexpr size_t kCount = std::size(Columns);
    SqlDateTime made[kCount];  // written by the columns that make their value
    int lengthOf[kCount];
    auto set = [&](int column, ColumnValue value) {
        (void)srv_setcoldata(srvproc, column, const_cast<void*>(value.data));
        lengthOf[column - 1] = value.length;
        if (lengths == LengthsGo::kWithEachValue && value.length != kNoLength) {
            (void)srv_setcollen(srvproc, column, value.length);
        }
    };
    [&]<size_t... I>(std::index_sequence<I...>) {
        (set(static_cast<int>(I + 1), Columns[I].value(row, &made[I])), ...);
    }(std::make_index_sequence<kCount>{});
    if (lengths == LengthsGo::kAfterTheValues) {
        for (size_t i = 0; i < kCount; ++i) {
            if (lengthOf[i] != kNoLength) (void)srv_setcollen(srvproc, static_cast<int>(i + 1), lengthOf[i]);
        }
    }
    (void)srv_sendrow(srvproc);
}

}  // namespace vrn::tasks
