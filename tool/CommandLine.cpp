#include "tool/CommandLine.h"

#include "support/logger.h"
#include "tool/Accept.h"
#include "tool/Check.h"
#include "tool/JavaChoice.h"
#include "tool/LogVerb.h"
#include "tool/Probe.h"
#include "tool/SupportFile.h"
#include "tool/Warm.h"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>

namespace {

constexpr int SILENT = -1;

struct Output
{
    std::ostream& stream;
    bool isColoured;
    MachineLogSettings log;
    bool isJson = false;
    int exitCode = 0;
};

CLI::App& addVerb(CLI::App& app, Output& output, const std::string& name, const std::string& description,
                  const std::string& example)
{
    CLI::App& verb = *app.add_subcommand(name, description);
    verb.footer("Example: KESTAtool " + example);
    verb.add_flag("--json", output.isJson, "Print the result as JSON");
    return verb;
}

void addCheck(CLI::App& app, Output& output)
{
    CLI::App& verb = addVerb(app, output, "check",
                             "Checks everything that a start of the server depends on: registration, Java runtimes, class path, "
                             "options, log folder; then starts each runtime and the server itself. Changes nothing.",
                             "check --json");
    const auto isStatic = std::make_shared<bool>(false);
    const auto isLive = std::make_shared<bool>(false);
    const auto seconds = std::make_shared<DWORD>(START_LIMIT / 1000);
    verb.add_flag("--static", *isStatic, "Start neither runtimes nor the server");
    verb.add_flag("--live", *isLive, "Also take the server's frame into a window, use the control and wait for an event")
        ->excludes("--static");
    verb.add_option("--limit", *seconds, "Seconds after which a start counts as failed")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    verb.callback([isStatic, isLive, seconds, &output] {
        const CheckDepth depth = *isStatic ? CheckDepth::Static : *isLive ? CheckDepth::Window : CheckDepth::Starts;
        const CheckResult result = checkMachine(output.log, depth, *seconds * 1000);
        output.exitCode = printResult(result.findings, result.details, output.isJson, output.isColoured, output.stream);
    });
}

void print(const CFindings& findings, Output& output)
{
    output.exitCode = printResult(findings, nlohmann::json::object(), output.isJson, output.isColoured, output.stream);
}

void addJava(CLI::App& app, Output& output)
{
    CLI::App& java = *app.add_subcommand("java", "Lists Java runtimes, and makes the server use one of them.");
    java.footer("Example: KESTAtool java use \"C:\\Program Files\\Eclipse Adoptium\\jdk-21.0.8.9-hotspot\"");
    java.require_subcommand(1);
    addVerb(java, output, "list", "Lists the runtimes that the server considers, and those of this machine that it does not see.",
            "java list")
        .callback([&output] { print(listRuntimes(), output); });
    const auto folder = std::make_shared<std::string>();
    CLI::App& use =
        addVerb(java, output, "use",
                "Starts the runtime in FOLDER and, when that works, registers it under a key of its own and prefers it "
                "(value javavm). What others have registered stays as it is. Needs an elevated console.",
                "java use \"C:\\Program Files\\Eclipse Adoptium\\jdk-21.0.8.9-hotspot\"");
    use.add_option("FOLDER", *folder, "The runtime's folder, above its folder bin")->required();
    use.callback([folder, &output] { print(useRuntime(*folder), output); });
    addVerb(java, output, "remove", "Takes back what \"java use\" has done. Needs an elevated console.", "java remove")
        .callback([&output] { print(removeRuntime(), output); });
}

void addLog(CLI::App& app, Output& output)
{
    const auto order = std::make_shared<LogOrder>();
    CLI::App& verb =
        addVerb(app, output, "log",
                "Reads a log file of any size: errors first, with their backtraces folded, then slow calls, counts "
                "per function, threads and milestones. Broken or cut lines are counted and skipped. The exit code is "
                "the number of errors.",
                "log KESTA-KESTAx64.exe-4712.log --html page.html");
    verb.add_option("FILE", order->file, "The log file; it may be in use")->required();
    verb.add_option("--trace", order->traceFile, "Also write the scopes as a trace-event file, for a trace viewer");
    verb.add_option("--html", order->htmlFile, "Also write a page with a timeline per thread, foldable scopes and search");
    verb.add_flag("--follow", order->isFollowing, "Print errors, warnings and slow calls as they come, until Ctrl+C")
        ->excludes("--json", "--trace", "--html");
    verb.callback([order, &output] {
        order->isJson = output.isJson;
        order->isColoured = output.isColoured;
        output.exitCode = readLog(*order, output.stream);
    });
}

void addWarm(CLI::App& app, Output& output)
{
    const auto isRemoving = std::make_shared<bool>(false);
    CLI::App& verb = addVerb(app, output, "warm",
                             "Makes the server start faster: Java, frame and control are started once, and what they loaded is "
                             "kept in an archive beside the server, which its next starts map into memory (Java 13 and newer). "
                             "Needs an elevated console. Repeat it after an update of Java or of a control.",
                             "warm");
    verb.add_flag("--remove", *isRemoving, "Take that back");
    verb.callback([isRemoving, &output] { print(*isRemoving ? removeClassData() : makeClassData(), output); });
}

void addReport(CLI::App& app, Output& output)
{
    const auto order = std::make_shared<ReportOrder>();
    const auto isStatic = std::make_shared<bool>(false);
    CLI::App& verb =
        addVerb(app, output, "report",
                "Writes an archive for support: the result of \"check\", logs, Java's crash files, versions. Texts of "
                "calls, properties and events are masked.",
                "report support.zip");
    verb.add_option("ARCHIVE", order->archive, "The zip file to write")->required();
    verb.add_flag("--with-texts", order->withTexts, "Mask nothing");
    verb.add_flag("--static", *isStatic, "Start neither runtimes nor the server");
    verb.callback([order, isStatic, &output] {
        order->log = output.log;
        order->depth = *isStatic ? CheckDepth::Static : CheckDepth::Starts;
        print(writeReport(*order), output);
    });
}

void addAccept(CLI::App& app, Output& output)
{
    const auto order = std::make_shared<AcceptOrder>();
    order->page = "result.html";
    CLI::App& verb =
        addVerb(app, output, "accept",
                "Tries out the registered server: calls, events, windows, mouse and keyboard, how client and server end. "
                "Compares each with what was predicted for Windows, and writes a page with pictures. Leave mouse and keyboard "
                "alone while it runs. It writes nothing to the registry.",
                "accept --page result.html");
    verb.add_option("--page", order->page, "The page to write")->capture_default_str();
    verb.add_option("--only", order->only, "Only these scenarios, by the names in the page")->delimiter(',');
    verb.add_flag("--long", order->isLong, "Also what takes minutes: 200 starts, a client that is killed early");
    verb.callback([order, &output] {
        AcceptResult result = runAcceptance(*order, output.isJson ? std::cerr : output.stream);
        const std::string page = fromPath(std::filesystem::absolute(toPath(order->page)));
        result.findings.setNextStep("send this page to the makers: " + page);
        output.exitCode = printResult(result.findings, result.details, output.isJson, output.isColoured, output.stream);
    });
}

// What the program starts itself with, to try out what may crash.
void addProbe(CLI::App& app, Output& output)
{
    struct Arguments
    {
        std::string answer;
        std::string version;
        std::string library;
        std::string control;
        std::string program;
        std::vector<std::string> uses;
        std::string scenario;
        std::string trail;
        bool isServer = false;
        bool isLive = false;
        bool withFrame = false;
        bool isLong = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::App& verb = *app.add_subcommand("probe")->group("");
    verb.add_option("--answer", arguments->answer)->required();
    verb.add_option("--version", arguments->version);
    verb.add_option("--library", arguments->library);
    verb.add_option("--control", arguments->control);
    verb.add_option("--program", arguments->program);
    verb.add_flag("--server", arguments->isServer);
    verb.add_flag("--live", arguments->isLive);
    verb.add_option("--use", arguments->uses);
    verb.add_flag("--frame", arguments->withFrame);
    verb.add_option("--scenario", arguments->scenario);
    verb.add_option("--trail", arguments->trail);
    verb.add_flag("--long", arguments->isLong);
    verb.callback([arguments, &output] {
        if (!arguments->scenario.empty()) {
            output.exitCode = probeScenario(arguments->scenario, arguments->trail, arguments->isLong, arguments->answer);
            return;
        }
        // The log says why a runtime does not start.
        Logger::setMaxLogLevel(output.log.level);
        output.exitCode =
            arguments->isServer
                ? probeServer(arguments->isLive, arguments->uses, arguments->answer)
                : probeRuntime(
                      {{arguments->version, arguments->library}, arguments->program, arguments->control, arguments->withFrame},
                      arguments->answer);
    });
}

} // namespace

int printResult(const CFindings& findings, const nlohmann::json& details, bool isJson, bool isColoured, std::ostream& out)
{
    if (isJson) {
        nlohmann::json result = findings.json();
        result.update(details);
        out << result.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
    } else {
        findings.print(out, isColoured);
        out << findings.faultCount() << (findings.faultCount() == 1 ? " finding. " : " findings. ") << findings.nextStep()
            << "\n";
    }
    return findings.exitCode();
}

int runTool(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& errors, bool isColoured)
{
    CLI::App app("KESTAtool shows which Java the server uses and why, and what went wrong.", "KESTAtool");
    app.footer("Example: KESTAtool check\nThe exit code is 0, or the number of findings (99 for more), or 100 and above when the "
               "command line is wrong.\nHelp for a verb: KESTAtool VERB --help");
    app.require_subcommand(1);
    Output output = {out, isColoured, currentLogSettings()};
    // What this program asks the registry is no part of the server's story.
    Logger::setMaxLogLevel(SILENT);
    addCheck(app, output);
    addJava(app, output);
    addLog(app, output);
    addReport(app, output);
    addWarm(app, output);
    addAccept(app, output);
    addProbe(app, output);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ParseError& error) {
        return app.exit(error, out, errors);
    } catch (const std::runtime_error& error) {
        CFindings findings;
        findings.fault("KESTAtool", app.get_subcommands().front()->get_name(), error.what(),
                       "correct the name or permission that it mentions, and run the command again");
        print(findings, output);
    }
    return output.exitCode;
}
