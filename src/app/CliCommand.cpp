#include "CliCommand.h"

#include <CLI/CLI.hpp>
#include <cstdio>

CliCommand::CliCommand(std::string name, std::string description)
    : name_(std::move(name)), description_(std::move(description)) {}

void CliCommand::addTo(CLI::App& program) {
    parsed_ = program.add_subcommand(name_, description_);
    declareOptions(*parsed_);
}

bool CliCommand::chosen() const {
    return parsed_ != nullptr && parsed_->parsed();
}

void CliCommand::warn(const QString& what) {
    std::fprintf(stderr, "cardsweep-cli: %s\n", what.toUtf8().constData());
}

int CliCommand::fail(int status, const QString& why) {
    warn(why);
    return status;
}

QStringList CliCommand::toStrings(const std::vector<std::string>& values) {
    QStringList strings;
    for (const std::string& value : values)
        strings << QString::fromStdString(value);
    return strings;
}
