// The rule by which a task file name tells its company and instance:
// {IDENTIFIER}-COMPANY.job, or {IDENTIFIER}-COMPANY$INSTANCE.job on an engine
// with an instance name, letter case not counting.
#pragma once

namespace vrn::tasks {

// 0 when name is the file name of a task of company (absent: any) on instance
// (absent: an engine without one); a negative number, by the first test that
// fails, otherwise.
int MatchTaskFileName(const char16_t* name, const char16_t* company, const char16_t* instance);

}  // namespace vrn::tasks
