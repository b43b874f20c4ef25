#include "fdshare/Options.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "peer/Endpoint.h"

namespace {

int report(const CLI::App& app, const CLI::Error& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help and --version
    std::cerr << "fdshare: " << error.what() << " (see fdshare --help)\n";
    return kExitUsage;
}

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, int& exitCode) {
    Options options;
    CLI::App app{"Offers folders, or the drives of this machine, over a channel.", "fdshare"};
    app.set_version_flag("--version", std::string("fdshare ") + ZFD_VERSION);

    auto* listen = app.add_option("--listen", options.listen,
                                  "Wait for connections on the Unix socket unix:PATH, or on "
                                  "tcp:PORT of this machine, which every user of it may reach");
    auto* stdio =
        app.add_flag("--stdio", options.stdio, "Serve one connection on standard input and output");
    auto* folders = app.add_option(
        "DIR", options.folders, "Folders to share, each as a drive; none: this machine's drives");
    auto* root = app.add_option("--root", options.rootFolders,
                                "Share the file tree, cut down to this folder; may be repeated");
    app.add_flag("--read-only", options.readOnly, "Let nobody write");
    bool noSandbox = false;
    app.add_flag("--no-sandbox", noSandbox,
                 "Do not confine this process to the shared folders: the other side may then reach "
                 "whatever this user can");
    app.add_flag("-v,--verbose", options.verbosity,
                 "Log errors and warnings; twice: what happens; three times: everything");
    root->expected(1)->take_all();
    root->excludes(folders);
    listen->excludes(stdio);

    try {
        app.parse(argc, argv);
        if (!options.stdio && options.listen.empty()) {
            throw CLI::RequiredError("one of --listen and --stdio");
        }
        const std::string fault = options.listen.empty() ? "" : peer::listenerFault(options.listen);
        if (!fault.empty()) throw CLI::ValidationError("--listen", fault);
    } catch (const CLI::Error& error) {
        exitCode = report(app, error);
        return std::nullopt;
    }
    options.sandbox = !noSandbox;
    return options;
}
