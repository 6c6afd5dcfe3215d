#include "modulation/ModulatorBase.h"

#include <atomic>
#include <cmath>

#include "engine/EngineHost.h"

namespace varitap {

namespace {
std::atomic<long> gSmoothFactor{kDefaultSmoothFactor};
}  // namespace

void setModulatorSmoothFactor(long factor) {
    if (factor != 0) gSmoothFactor.store(factor, std::memory_order_relaxed);
}

long modulatorSmoothFactor() { return gSmoothFactor.load(std::memory_order_relaxed); }

ModulatorBase::ModulatorBase(EngineHost* target) : target_(target) {}

void ModulatorBase::setIndex(int index) { index_ = index; }
int ModulatorBase::getIndex() const { return index_; }
void ModulatorBase::setMin(float value) { min_ = value; }
void ModulatorBase::setMax(float value) { max_ = value; }
float ModulatorBase::getMin() const { return min_; }
float ModulatorBase::getMax() const { return max_; }
void ModulatorBase::setTarget(EngineHost* target) { target_ = target; }
void ModulatorBase::setPower(bool on) { power_ = on; }
bool ModulatorBase::isPowered() const { return power_; }

void ModulatorBase::write(float value, bool automationWriting) {
    if (!target_ || !std::isfinite(value)) return;
    if (automationWriting)
        target_->setParameterAutomated(index_, value);
    else
        target_->setParameter(index_, value);
}

}  // namespace varitap
