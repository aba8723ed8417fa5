#pragma once
// One subcommand of cardsweep-cli: its name, its line in the program's help, the options it
// declares for itself, and its run. Commands are declared and parsed before the program's
// context exists; the one the parse chose then runs once. Main thread only.

#include <QString>
#include <QStringList>
#include <string>
#include <vector>

namespace CLI {
class App;
}
class AppContext;

class CliCommand {
  public:
    CliCommand(std::string name, std::string description);
    virtual ~CliCommand() = default;
    CliCommand(const CliCommand&) = delete;
    CliCommand& operator=(const CliCommand&) = delete;

    const std::string& name() const { return name_; }
    const std::string& description() const { return description_; }
    /// Adds the subcommand, with its options, to the program's parser.
    void addTo(CLI::App& program);
    /// True once the parse picked this subcommand.
    bool chosen() const;
    /// Does what was asked and gives the program's exit status.
    virtual int run(AppContext& context) = 0;

  protected:
    /// Declares the subcommand's arguments; their values land in the command's members.
    virtual void declareOptions(CLI::App&) {}
    /// Says it on standard error as "cardsweep-cli: WHAT", as every problem of the program is.
    static void warn(const QString& what);
    /// Warns why and gives back the exit status.
    static int fail(int status, const QString& why);
    static QStringList toStrings(const std::vector<std::string>& values);

  private:
    std::string name_;
    std::string description_;
    CLI::App* parsed_ = nullptr;
};
