#pragma once
// Checks an offload asked for on the command line before anything is written anywhere: the
// source, every destination (given, a folder or creatable, writable, not given twice under
// another spelling, not inside the source), and room for the card on every destination's file
// system. Reads only.

#include <QString>
#include <QStringList>
#include <optional>

class OffloadRequest {
  public:
    /// The one line that says why the request can't be carried out; nullopt when it can.
    static std::optional<QString> problem(const QString& source, const QStringList& destinations,
                                          bool onlyMovies);

    /// As problem, for destinations alone (no source, no room to check).
    static std::optional<QString> destinationsProblem(const QStringList& destinations) {
        return destinationProblem(QString(), destinations);
    }

  private:
    static std::optional<QString> destinationProblem(const QString& source,
                                                     const QStringList& destinations);
    static std::optional<QString> spaceProblem(const QString& source,
                                               const QStringList& destinations, bool onlyMovies);
};
