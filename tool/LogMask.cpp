#include "tool/LogMask.h"

#include "tool/LogLine.h"

#include <algorithm>
#include <fstream>

namespace {

// Modules that never see a text of a call.
const std::string_view OPEN_MODULES[] = {"registry", "logger", "helpers", "version", "KESTAserver"};

// Functions whose parameters are paths, numbers or names of the program's own.
const std::string_view OPEN_FUNCTIONS[] = {
    "CBeanFrame",       "CJavaManagerJNIClient",
    "ObjectMain",       "callBooleanSetterOnFrame",
    "createInstance",   "doesFileExist",
    "enable",           "loadJVMlibrary",
    "provideErrorInfo", "pushWindowHandle",
    "queueEvent",       "registerNative",
    "setBounds",        "setEnabled",
    "setFrameBounds",   "setFrameEnabled",
    "setFrameVisible",  "setLogLevel",
    "setVisible",       "startBean",
};

// How statements begin that say nothing of a call.
const std::string_view OPEN_STATEMENTS[] = {
    "About to call ",
    "Adding ",
    "Basiscontrol path: ",
    "CHECKPOINT: ",
    "Class Path: ",
    "Client seems ",
    "Control's Path: ",
    "Dropped event: ",
    "Enabled Java Security Manager ",
    "Failed to create ATL object.",
    "Found Java ",
    "Frame's window ",
    "JNI 1.",
    "JVM Path: ",
    "Java ",
    "Looking for installed Java ",
    "More objects to release...",
    "ORVANE Control ",
    "Pattern ",
    "Preferred JVM ",
    "Providing Error Info!",
    "QueueEntry ",
    "Releasing ",
    "Standard JVM Path: ",
    "Starting WatchDog ",
    "Successfully added Bean ",
    "Unique Window ID ",
    "Used ",
    "call addORVANEControlListener method",
    "could not find QueueEntry ",
    "double creation ",
    "orvane preferred JVM pattern: ",
    "ready to process QueueEntry ",
};

bool isOpen(const auto& list, std::string_view text)
{
    return std::ranges::find(list, text) != std::end(list);
}

// Checks show their own source text and a result. What shows something else begins with its name.
bool isCheck(std::string_view text)
{
    const bool hasResult = text.ends_with(": true") || text.ends_with(": false") || text.ends_with(": success") ||
                           text.find(": success: ") != std::string_view::npos ||
                           text.find(": failure: ") != std::string_view::npos;
    const std::string_view expression = text.substr(0, text.find(": "));
    // An expression has no blank without an operator beside it, as a text of several words has.
    const bool isExpression = expression.find_first_of("()=!") != std::string_view::npos && !text.starts_with("text=");
    return hasResult && isExpression;
}

std::string maskedStatement(std::string_view text)
{
    constexpr std::string_view EXCEPTION = "Exception: ";
    if (text.starts_with(EXCEPTION)) { // the class of the exception stays
        return std::string(text.substr(0, std::min(text.size(), text.find(": ", EXCEPTION.size())))) + ": " + std::string(MASK);
    }
    const auto begins = [&](std::string_view known) { return text.starts_with(known); };
    return isCheck(text) || std::ranges::any_of(OPEN_STATEMENTS, begins) ? std::string(text) : std::string(MASK);
}

// Lines that Java writes behind an object of its memory.
bool isOpenCrashLine(std::string_view line)
{
    constexpr std::string_view BEGINNINGS[] = {" - ---- ", "stack at sp + ",
                                               "Top of Stack: ", "Instructions: ", "---------------"};
    const bool isRegister = line.size() > 6 && line.front() == 'R' && (line.substr(3, 3) == "=0x" || line.substr(2, 4) == " =0x");
    return isRegister || std::ranges::any_of(BEGINNINGS, [&](std::string_view known) { return line.starts_with(known); });
}

// Name, and time at the end, stay.
std::string maskedScope(const LogLine& line, std::string_view text)
{
    const size_t blank = text.find(' ');
    const std::string_view name = text.substr(0, blank);
    if (blank == std::string_view::npos || text.substr(blank).find_first_not_of(' ') == std::string_view::npos ||
        isOpen(OPEN_FUNCTIONS, name)) {
        return std::string(text);
    }
    const size_t time = line.milliseconds() >= 0 ? text.rfind('[') : text.size();
    const std::string_view parameters = text.substr(blank, time - blank);
    return std::string(name) + " " + (parameters.find_first_not_of(' ') == std::string_view::npos ? "" : std::string(MASK)) +
           (time < text.size() ? " " : "") + std::string(text.substr(std::min(time, text.size())));
}

} // namespace

std::string maskedLogLine(std::string_view text)
{
    if (text == BACKTRACE_BEGIN || text == BACKTRACE_END || text.empty()) {
        return std::string(text);
    }
    const auto line = parseLogLine(text);
    if (!line.has_value()) {
        return std::string(MASK); // the rest of a message, or damage
    }
    if (isOpen(OPEN_MODULES, line->module)) {
        return std::string(text);
    }
    const std::string_view message = line->message();
    const std::string_view front = text.substr(0, text.size() - message.size());
    return std::string(front) + (line->marker == LogMarker::Plain ? maskedStatement(message) : maskedScope(*line, message));
}

std::string CCrashMask::operator()(std::string_view line)
{
    constexpr std::string_view STRING = "string: \""; // of Java, in memory that a register pointed to
    const size_t found = line.find(STRING);
    if (found != std::string_view::npos) {
        m_isInText = !line.substr(found + STRING.size()).ends_with('"');
        return std::string(line.substr(0, found + STRING.size())) + std::string(MASK) + "\"";
    }
    // A quotation mark may be the text's own, so only a line that is known to follow a text ends it.
    m_isInText = m_isInText && !isOpenCrashLine(line);
    return m_isInText ? std::string(MASK) : std::string(line);
}

void maskFile(const std::filesystem::path& path, const LineMask& mask, const std::function<void(std::string_view)>& sink)
{
    std::ifstream file(path, std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        const size_t size = line.find_last_not_of('\r') + 1;
        sink(mask(std::string_view(line).substr(0, size)) + line.substr(size) + "\n");
    }
}
