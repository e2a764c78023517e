#include "app/core/Automation.h"

#include <atomic>

namespace Automation {
namespace {
std::atomic<bool> s_Active{false};
}

void SetActive(bool Active) {
    s_Active = Active;
}
bool IsActive() {
    return s_Active.load();
}

} // namespace Automation
