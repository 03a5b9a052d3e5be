#include "foundation/Locale.h"

#include <atomic>

ZLC2_Locale applicationLocale = nullptr;

ZLC2_Locale getApplicationLocale() {
    std::atomic_ref<ZLC2_Locale> locale(applicationLocale);
    ZLC2_Locale present = locale.load(std::memory_order_acquire);
    if (!present) {
        present = ZLC2_GetLocale();
        locale.store(present, std::memory_order_release);
    }
    return present;
}
