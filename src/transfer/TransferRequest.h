#pragma once
// Checks a transfer before anything is written anywhere: the source, every destination (given,
// a folder or creatable, writable, not given twice under another spelling, not inside the
// source), and room for the card on every destination's file system. The command line refuses
// a request with it; the window refuses to start a card with it. Reads only; safe from any
// thread.

#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

class FileLayer;

class TransferRequest {
  public:
    /// Why a request can't be carried out.
    struct Refusal {
        enum class Reason {
            NoSource,
            NoDestination,
            EmptyDestination,
            InsideSource,
            NotAFolder,
            Unwritable,
            GivenTwice,
            NoRoom,
        };
        Reason reason = Reason::NoSource;
        /// The command line's one line, naming the destinations at fault.
        QString line;
        /// NoRoom: the file system that is too small, as a crew knows it (its mount point's
        /// name, or the destination's path on the system disk), and the figures.
        QString fileSystem;
        std::uint64_t needed = 0;
        std::uint64_t available = 0;

        /// What the window says: "No space left on NAME" with the figures, else the line.
        QString sentence() const;
    };

    /// nullopt when the card at source (read through files) can be transferred to every
    /// destination.
    static std::optional<Refusal> problem(FileLayer& files, const QString& source,
                                          const QStringList& destinations, bool onlyMovies);
    /// As problem, for destinations alone (no source, no room to check).
    static std::optional<Refusal> destinationsProblem(const QStringList& destinations) {
        return destinationProblem(QString(), destinations);
    }

  private:
    static std::optional<Refusal> destinationProblem(const QString& source,
                                                     const QStringList& destinations);
    static std::optional<Refusal> spaceProblem(FileLayer& files, const QString& source,
                                               const QStringList& destinations, bool onlyMovies);
};
