#include "HVX/App/UserChoice.h"

#include "HVX/Base/Error.h"

namespace nrq {
namespace {

// Process-wide and unlocked: set it before devices run.
UserChoiceCallback userChoiceCallback;

thread_local TaskEventHandler* threadTaskEventHandler = nullptr;

} // namespace

int AskForUserChoice(const UserChoiceRequest& request) {
    if (!userChoiceCallback)
        throw Error("input is required but no callback was set");
    return userChoiceCallback(request);
}

UserChoiceCallback GetUserChoiceCallback() { return userChoiceCallback; }

void SetUserChoiceCallback(UserChoiceCallback callback) { userChoiceCallback = std::move(callback); }

TaskEventResponse EmitTaskEvent(TaskEvent event) {
    if (!threadTaskEventHandler)
        return TaskEventResponse{1};
    return threadTaskEventHandler->HandleTaskEvent(event);
}

void SetThreadTaskEventHandler(TaskEventHandler* handler) { threadTaskEventHandler = handler; }

} // namespace nrq
