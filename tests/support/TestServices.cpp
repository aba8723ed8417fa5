#include "TestServices.h"

#include "DetachedThreads.h"

Services TestServices::bundle() {
    return Services{*files, *mounts, notifier_, DetachedThreads::shared(), clock};
}
