// `dravix time ...`: the recorder's time functions for a shell user.
#include "tools/command.h"
#include "tools/table.h"
#include "tools/time_arg.h"

#include "dravix/base/ztime.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <iostream>

namespace dravix::cli {
namespace {

struct Args {
  std::string a, b, c, d;
  int seconds = 0;
  unsigned month = 0, year = 0;
};
Args g;

int Emit(const nlohmann::json& j, const std::vector<std::pair<std::string, std::string>>& rows) {
  if (Globals().json)
    std::cout << j.dump(2) << '\n';
  else
    PrintPairs(std::cout, rows);
  return kExitOk;
}

std::string Str(__int64 v) { return std::to_string(v); }

int Now() {
  const SYSTEMTIME t = GetSysTime();
  return Emit({{"local", FormatTimeArg(t, false)}, {"zm", GetZMTime()}, {"formatted", FormatSTTIME(t)}},
              {{"local", FormatTimeArg(t, false)}, {"zm", Str(GetZMTime())}, {"formatted", FormatSTTIME(t)}});
}

int Zm() {
  // A number of digits is a ZM time to unpack; anything else is a time to pack.
  if (!g.a.empty() && g.a.find_first_not_of("0123456789") == std::string::npos) {
    if (g.a.size() > 18) throw UsageError("ZM time '" + g.a + "' has more than 18 digits");
    ParseZMTimeArg(std::stoll(g.a), "TIME");
    const SYSTEMTIME t = ZMTimeToSysTime(std::stoll(g.a));
    return Emit({{"zm", std::stoll(g.a)}, {"time", FormatTimeArg(t)}}, {{"zm", g.a}, {"time", FormatTimeArg(t)}});
  }
  const SYSTEMTIME t = ParseTimeArg(g.a, "TIME");
  const __int64 zm = SysTimeToZMTime(t);
  return Emit({{"time", FormatTimeArg(t)}, {"zm", zm}}, {{"time", FormatTimeArg(t)}, {"zm", Str(zm)}});
}

int Diff() {
  const SYSTEMTIME a = ParseTimeArg(g.a, "A");
  const SYSTEMTIME b = ParseTimeArg(g.b, "B");
  const long long exact = CalendarSeconds(b) - CalendarSeconds(a);
  if (exact > INT32_MAX || exact < -INT32_MAX) {
    throw UsageError("A and B lie " + std::to_string(exact < 0 ? -exact : exact) +
                     " seconds apart, more than the 2147483647 a time difference holds");
  }
  const int fromAToB = MinusTime(a, b);
  const LONG aMinusB = MilusTime(a, b);
  return Emit({{"a", FormatTimeArg(a)}, {"b", FormatTimeArg(b)}, {"minus_time", fromAToB}, {"milus_time", aMinusB}},
              {{"a", FormatTimeArg(a)},
               {"b", FormatTimeArg(b)},
               {"minus time (seconds from A to B)", std::to_string(fromAToB)},
               {"milus time (seconds A - B)", std::to_string(aMinusB)}});
}

int Add() {
  const SYSTEMTIME t = ParseTimeArg(g.a, "TIME");
  CheckShiftInRange(t, g.seconds, "TIME + SECONDS");
  const SYSTEMTIME r = PlusTime(t, g.seconds);
  return Emit(
      {{"time", FormatTimeArg(t)}, {"seconds", g.seconds}, {"result", FormatTimeArg(r, false)}},
      {{"time", FormatTimeArg(t)}, {"seconds", std::to_string(g.seconds)}, {"result", FormatTimeArg(r, false)}});
}

int Days() {
  const UINT n = TellFromDay(g.month, g.year);
  return Emit({{"month", g.month}, {"year", g.year}, {"days", n}},
              {{"month", std::to_string(g.month)}, {"year", std::to_string(g.year)}, {"days", std::to_string(n)}});
}

int Window() {
  const SYSTEMTIME s = ParseTimeArg(g.a, "START");
  const SYSTEMTIME t = ParseTimeArg(g.b, "TIME");
  const SYSTEMTIME e = ParseTimeArg(g.c, "END");
  const bool inside = CompareOverTime(s, t, e) == -1;
  return Emit({{"inside", inside}}, {{"inside (TIME in the daily window START..END)", inside ? "true" : "false"}});
}

int Intersect() {
  const tagDSSYSTIMEPERIOD a{ParseTimeArg(g.a, "A_START"), ParseTimeArg(g.b, "A_END")};
  const tagDSSYSTIMEPERIOD b{ParseTimeArg(g.c, "B_START"), ParseTimeArg(g.d, "B_END")};
  tagDSSYSTIMEPERIOD r{};
  if (IntersectSysTime(r, a, b) == 0)
    return Emit({{"intersects", false}, {"start", nullptr}, {"end", nullptr}},
                {{"intersects", "false"}, {"start", "-"}, {"end", "-"}});
  return Emit({{"intersects", true}, {"start", FormatTimeArg(r.start)}, {"end", FormatTimeArg(r.end)}},
              {{"intersects", "true"}, {"start", FormatTimeArg(r.start)}, {"end", FormatTimeArg(r.end)}});
}

void Register(CLI::App& app) {
  CLI::App* time = AddCommand(&app, "time", "The recorder's time values: ZM time, differences, daily windows");
  const char* kForm = "Local time: YYYY-MM-DD hh:mm:ss[.fff] (a T may stand for the blank)";

  AddJsonFlag(AddCommand(time, "now", "The current local time and its ZM time", Now));

  CLI::App* zm = AddCommand(time, "zm", "Pack a time into a ZM time (milliseconds dropped), or unpack a ZM time", Zm);
  zm->add_option("TIME", g.a, std::string(kForm) + ", or a ZM time of digits")->required();
  AddJsonFlag(zm);

  CLI::App* diff = AddCommand(time, "diff", "Seconds between two times: MinusTime (B - A) and MilusTime (A - B)", Diff);
  diff->add_option("A", g.a, kForm)->required();
  diff->add_option("B", g.b, kForm)->required();
  AddJsonFlag(diff);

  CLI::App* add = AddCommand(time, "add", "A time plus a number of seconds (negative to subtract)", Add);
  add->add_option("TIME", g.a, kForm)->required();
  add->add_option("SECONDS", g.seconds, "Signed 32-bit seconds")->required();
  AddJsonFlag(add);

  CLI::App* days = AddCommand(time, "days", "Days in a month (other month numbers are returned unchanged)", Days);
  days->add_option("MONTH", g.month, "Month, 1 to 12")->required();
  days->add_option("YEAR", g.year, "Year, e.g. 2008 (February has 29 days in leap years)")->required();
  AddJsonFlag(days);

  CLI::App* window =
      AddCommand(time, "window", "Whether a time of day lies in a daily window that may run over midnight", Window);
  window->add_option("START", g.a, kForm)->required();
  window->add_option("TIME", g.b, kForm)->required();
  window->add_option("END", g.c, kForm)->required();
  AddJsonFlag(window);

  CLI::App* inter = AddCommand(time, "intersect", "The overlap of two periods", Intersect);
  inter->add_option("A_START", g.a, kForm)->required();
  inter->add_option("A_END", g.b, kForm)->required();
  inter->add_option("B_START", g.c, kForm)->required();
  inter->add_option("B_END", g.d, kForm)->required();
  AddJsonFlag(inter);
}

const Registration reg{20, Register};

}  // namespace
}  // namespace dravix::cli
