#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
    CLI::App app("The PC's side of ZELRmUp analyzers");
    app.set_version_flag("--version", ZELPC_VERSION);
    CLI11_PARSE(app, argc, argv);
    return 0;
}
