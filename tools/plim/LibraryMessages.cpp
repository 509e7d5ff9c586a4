// The library's messages and reasons in plim's output: the tracer's log is shown only where
// `plim trace --log` asks for it, a loader's messages become part of the one error line of a
// file that cannot be loaded, and failures name the library's reason.
#include "ToolSupport.h"

namespace plimtool {

namespace {

std::FILE *gTraceLog = nullptr;       // where the tracer's log goes; dropped while null
std::string *gCollected = nullptr;    // while set, the library's other messages are kept here

void ToolOutput(void *, PlimOutputStream stream, const char *text, size_t length) {
    if (stream == kPlimOutputStandardOutput) {
        if (gTraceLog) {
            std::fwrite(text, 1, length, gTraceLog);
            std::fflush(gTraceLog);
        }
        return;
    }
    if (gCollected)
        gCollected->append(text, length);
    else
        std::fwrite(text, 1, length, stderr);
}

}  // namespace

void InstallLibraryOutput() { PlimSetOutputHook(ToolOutput, nullptr); }

ShowTraceLog::ShowTraceLog(std::FILE *stream) : previous_(gTraceLog) { gTraceLog = stream; }
ShowTraceLog::~ShowTraceLog() { gTraceLog = previous_; }

CollectLibraryMessages::CollectLibraryMessages() : previous_(gCollected) { gCollected = &text_; }
CollectLibraryMessages::~CollectLibraryMessages() { gCollected = previous_; }

std::string CollectLibraryMessages::OneLine() const {
    std::string line;
    for (char c : text_) {
        if (c == '\n') {
            if (!line.empty() && line.back() != ' ') line += "; ";
        } else {
            line += c;
        }
    }
    while (!line.empty() && (line.back() == ' ' || line.back() == ';')) line.pop_back();
    return line;
}

std::string WithLibraryReason(const std::string &message) {
    PlimError reason = PlimGetLastError();
    if (reason == kPlimErrorNone) return message;
    return message + ": " + PlimGetErrorText(reason);
}

}  // namespace plimtool
