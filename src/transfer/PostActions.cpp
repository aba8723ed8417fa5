#include "PostActions.h"

#include "QVException.h"

void PostActions::perform(const std::shared_ptr<QVVolume>& volume) const {
    for (const auto& action : actions_) {
        try {
            action->perform(volume);
        } catch (const std::exception& exception) {
            QVException::logException(exception, action->name().toUtf8().constData());
        }
    }
}
