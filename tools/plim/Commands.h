// Subcommands of plim and the small argument-parsing helpers they share.
#pragma once

#include "ToolSupport.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace plimtool {

using Args = std::vector<std::string>;

// Writes "plim: <sub>: <message>" on stderr.
void PrintError(const std::string &sub, const std::string &message);
// Usage text of one subcommand (several lines, ending in a newline); empty when unknown.
std::string UsageText(const std::string &sub);

struct ParsedArgs {
    std::vector<std::string> positional;
    std::multimap<std::string, std::string> options;  // flags map to ""
    bool help = false;

    bool Has(const std::string &name) const { return options.count(name) != 0; }
    std::vector<std::string> All(const std::string &name) const;
    std::string Last(const std::string &name, const std::string &fallback = "") const;
};
// Splits args into positionals and options. `valued` options take the next word, `flags` none.
// Prints a usage error and returns false on an unknown option or a missing value.
bool ParseArgs(const std::string &sub, const Args &args, const std::set<std::string> &valued,
               const std::set<std::string> &flags, ParsedArgs *out);
// Checks the positional count; prints a usage error and returns false otherwise.
bool ExpectPositionals(const std::string &sub, const ParsedArgs &parsed, size_t count);
// The start of every subcommand: parses args, prints the usage for --help, and checks that there
// are exactly `count` positionals (any number when 0). False when the subcommand should stop
// at once, with *exitCode set.
bool Prepare(const std::string &sub, const Args &args, const std::set<std::string> &valued,
             const std::set<std::string> &flags, size_t count, ParsedArgs *parsed, int *exitCode);

// "X,Y,W,H" and "W,H" as floats; false on anything else.
bool ParseFloats(const std::string &text, size_t count, std::vector<float> *values);
bool ParseRect(const std::string &text, CGRect *rect);

// Loads IN, runs `change` on it, writes OUT in the format of OUT's extension.
int RunLoadChangeWrite(const std::string &sub, const std::string &in, const std::string &out,
                       bool (*change)(PlimCFImage image, const void *context, std::string *error),
                       const void *context);

int RunInfo(const Args &args);
int RunConvert(const Args &args);
int RunCrop(const Args &args);
int RunScale(const Args &args);
int RunSimpleOperation(const std::string &sub, const Args &args);  // flip, gray, color, ...
int RunMask(const Args &args);
int RunComposite(const Args &args);
int RunTile(const Args &args);
int RunTrace(const Args &args);
int RunRecolor(const Args &args);
int RunMatch(const Args &args);

}  // namespace plimtool
