// Shared pieces of the plim command-line tool: operation names, output formats, reading inputs
// (standard input included), safe file writes and the traced-outline drawing. Everything here goes
// through the public C API only.
#pragma once

#include <PlimBitmapLib/PlimBitmapLib.h>

#include "CFRef.h"

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plimtool {

// Owning holders for CF references (the library's header-only helper; it calls only CFRetain and
// CFRelease).
using plim::CFRef;
using ImageRef = CFRef<PlimCFImage>;

// The string's UTF-8 text; empty for null or text that cannot be converted.
std::string CFStringToStd(CFStringRef string);

// The 24 composite operations as the command line spells them ("clear", "copy-src", "srcover",
// "multiply", "soft-light", ...), in operation-code order.
struct OperationName {
    const char *name;
    PlimCompositeOperation operation;
};
const std::vector<OperationName> &CompositeOperationNames();
std::optional<PlimCompositeOperation> CompositeOperationFromName(std::string_view name);

enum class OutputFormat { PNG, JPEG, TIFF, PICT, PCT, WebP };
// "png", "jpeg"/"jpg", "tiff"/"tif", "pict", "pct", "webp" (case-insensitive); nullopt otherwise.
std::optional<OutputFormat> OutputFormatFromName(std::string_view name);
// From the extension of path; nullopt when it has none or an unknown one.
std::optional<OutputFormat> OutputFormatFromPath(std::string_view path);
// The usual file name extension: "png", "jpg", "tiff", "pict", "pct", "webp".
std::string ExtensionOf(OutputFormat format);

// How to write an image: the format and, for JPEG and WebP, a quality from 1 to 100 (0: the
// default, which for WebP is lossless).
struct OutputChoice {
    OutputFormat format = OutputFormat::PNG;
    UInt32 quality = 0;
};

// The path that stands for standard input or output.
inline bool IsStdio(const std::string &path) { return path == "-"; }

// The whole content of a file, or of standard input for "-" (which can be read once per run).
// On failure returns false and sets *error to a one-line message naming the path.
bool ReadInput(const std::string &path, std::string *bytes, std::string *error);

// The container format of encoded bytes ("PNG", "JPEG", "TIFF", "GIF", "BMP", "WebP", "AVIF",
// "HEIF", "JPEG XL"); picture
// files, which carry no signature, are named by the path's extension ("PICT", "PCT").
std::string FormatNameOf(std::string_view bytes, const std::string &path);

// Loads an image file ("-": standard input). On failure returns null and sets *error to a
// one-line message naming the path and the library's reason ("cannot read 'x.png': file not
// found", "cannot load 'y.jpg': the data is truncated").
// *formatName, when given, receives FormatNameOf the file.
PlimCFImage LoadImageFile(const std::string &path, std::string *error,
                          std::string *formatName = nullptr);

// Encodes the image and writes it to path through a temporary file in the same directory that is
// renamed into place, so a failure never leaves a partial file; "-" writes to standard output.
// Returns false and sets *error to a one-line message on failure.
bool WriteImageFile(PlimCFImage image, const std::string &path, const OutputChoice &output,
                    std::string *error);
// Same guarantee for text (SVG, JSON, ...).
bool WriteTextFile(const std::string &path, std::string_view text, std::string *error);

// An SVG document showing the image (embedded as a PNG data URI) with its alpha outline at the given
// threshold stroked on top. The tracer's own log is dropped, or shown on the given stream
// (stdout or stderr) through the output hook of InstallLibraryOutput.
// Returns nullopt and sets *error when the image cannot be encoded or traced.
std::optional<std::string> TraceSVGDocument(PlimCFImage image, float threshold,
                                            std::FILE *showLogOn, std::string *error);

// The library's messages (LibraryMessages.cpp). InstallLibraryOutput sets the output hook for the
// run: the tracer's log is dropped unless a ShowTraceLog is alive, and the loaders' and other
// messages go to stderr unless a CollectLibraryMessages is alive.
void InstallLibraryOutput();
class ShowTraceLog {
public:
    explicit ShowTraceLog(std::FILE *stream);  // null: drop the log
    ~ShowTraceLog();
    ShowTraceLog(const ShowTraceLog &) = delete;
    ShowTraceLog &operator=(const ShowTraceLog &) = delete;

private:
    std::FILE *previous_;
};
class CollectLibraryMessages {
public:
    CollectLibraryMessages();
    ~CollectLibraryMessages();
    CollectLibraryMessages(const CollectLibraryMessages &) = delete;
    CollectLibraryMessages &operator=(const CollectLibraryMessages &) = delete;
    // What was collected, as one line ("a; b"), empty when nothing was.
    std::string OneLine() const;

private:
    std::string text_;
    std::string *previous_;
};
// "<message>: <reason>" with the text of the library's last error (PlimGetLastError); the message
// alone when there is none. Clear the last error before the call whose failure is explained.
std::string WithLibraryReason(const std::string &message);

// Exit codes shared by every subcommand.
constexpr int kExitOK = 0;
constexpr int kExitFailure = 1;  // unreadable/unsupported/corrupt input, failed operation or write
constexpr int kExitUsage = 2;    // bad arguments

// `plim demo OUTDIR`; args are the words after "demo" (handles --help itself).
int RunDemo(const std::vector<std::string> &args);

}  // namespace plimtool
