#include "PostActions.h"

#include "PostActionRun.h"
#include "QVException.h"

void PostActions::perform(PostActionRun& run) const {
    for (const auto& action : actions_) {
        if (action->needsFirstDestination() && run.firstDestination().isEmpty())
            continue;
        try {
            action->perform(run);
        } catch (const std::exception& exception) {
            QVException::logException(exception, action->name().toUtf8().constData());
        }
    }
}
