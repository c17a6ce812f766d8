// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeControl.h"

#include <string>

#include "fakes/Actions.h"

namespace fakes {

bool FakeControl::available = true;
int FakeControl::notifyResult = 1;
int FakeControl::terminateResult = 1;
std::vector<ETerminateErrorType> FakeControl::terminateErrors;
TSZelData FakeControl::terminateData;
std::function<void()> FakeControl::duringNotify;
std::function<void()> FakeControl::duringTerminate;

void FakeControl::reset() {
    available = true;
    notifyResult = 1;
    terminateResult = 1;
    terminateErrors.clear();
    terminateData = TSZelData();
    duringNotify = nullptr;
    duringTerminate = nullptr;
}

namespace {

class Control : public IZelControl {
public:
    int Terminate(std::vector<ETerminateErrorType>& errors, TSZelData& data) override {
        Actions::add("Terminate");
        if (FakeControl::duringTerminate) {
            FakeControl::duringTerminate();
        }
        errors = FakeControl::terminateErrors;
        data = FakeControl::terminateData;
        return FakeControl::terminateResult;
    }

    int Notify(ETriggerType trigger, const TSNotifyData& data) override {
        Actions::add("Notify " + std::to_string(trigger) + " " + std::to_string(data.source) + " " +
                     std::to_string(data.sourcePlugState) + " " + std::to_string(data.value));
        if (FakeControl::duringNotify) {
            FakeControl::duringNotify();
        }
        return FakeControl::notifyResult;
    }
};

Control theControl;

}  // namespace
}  // namespace fakes

void ZelServiceAPI::CreateZelControl(IZelControl** control) {
    fakes::Actions::add("CreateZelControl");
    *control = fakes::FakeControl::available ? &fakes::theControl : nullptr;
}

void ZelServiceAPI::DestroyZelControl() {
    fakes::Actions::add("DestroyZelControl");
}
