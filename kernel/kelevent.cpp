#include "kernel/kelevent.h"

namespace Ombrin {

// Defined here so that each class has one home for its virtual table.
CkelEvent::~CkelEvent() = default;
CkelTimerEvent::~CkelTimerEvent() = default;
CkelChildEvent::~CkelChildEvent() = default;
CkelCustomEvent::~CkelCustomEvent() = default;
CkelDataSensorEvent::~CkelDataSensorEvent() = default;
CkelAnyDataSensorEvent::~CkelAnyDataSensorEvent() = default;

} // namespace Ombrin
