// SPDX-License-Identifier: Apache-2.0
// The settings of the platform from the command line: what was asked for, and the command that does it.
#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Commands.h"
#include "Types.h"

int main(int argc, char** argv) {
    CLI::App app("Reads, writes, lists and watches the settings of the platform.", "vconftool");
    app.require_subcommand(1);
    std::string key;
    std::string type;
    std::string value;
    std::vector<std::string> keys;
    bool force = false;
    bool recursive = false;

    CLI::App* const get = app.add_subcommand("get", "Print the value of a key.");
    get->add_option("KEY", key)->required();

    CLI::App* const set = app.add_subcommand("set", "Set a key.");
    set->add_option("-t,--type", type, "The type of the value")
        ->required()
        ->check(CLI::IsMember(vconftool::typeNames()));
    set->add_option("KEY", key)->required();
    set->add_option("VALUE", value)->required();
    set->add_flag("-f,--force", force, "Let a key that has another type change it");

    CLI::App* const unset = app.add_subcommand("unset", "Remove a key.");
    unset->add_option("KEY", key)->required();

    CLI::App* const list = app.add_subcommand("ls", "Print the keys of a folder with their values.");
    list->add_flag("-r,--recursive", recursive, "Print the keys of its folders, too");
    list->add_option("FOLDER", key)->required();

    CLI::App* const watch = app.add_subcommand("watch", "Print a line for each change of a key.");
    watch->add_option("KEY", keys)->required();

    vconftool::Status status = vconftool::kDone;
    get->callback([&] { status = vconftool::get(key); });
    set->callback([&] { status = vconftool::set(key, type, value, force); });
    unset->callback([&] { status = vconftool::unset(key); });
    list->callback([&] { status = vconftool::list(key, recursive); });
    watch->callback([&] { status = vconftool::watch(keys); });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? vconftool::kDone : vconftool::kBadUsage;
    }
    return status;
}
