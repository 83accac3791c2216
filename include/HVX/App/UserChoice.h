#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace nrq {

// What the application's callback receives. The meaning of the fields is a
// matter between the application and its callback.
struct UserChoiceRequest {
    std::string_view title;
    std::string_view message;
    std::string_view details;
    int32_t kind; // left unset by the constructor
    int32_t option0 = -1;
    int32_t option1 = -1;
    int32_t option2 = -1;
};

using UserChoiceCallback = std::function<int(const UserChoiceRequest&)>;

// Raises "input is required but no callback was set" when none is set.
int AskForUserChoice(const UserChoiceRequest& request);
UserChoiceCallback GetUserChoiceCallback();
void SetUserChoiceCallback(UserChoiceCallback callback);

enum class TaskEvent : int32_t {
    TavrelSecondPass = 3, // the board's first pass is over; a second may follow
    DobotSecondPass = 4,  // likewise for the arm
};

struct TaskEventResponse {
    int32_t value = 0; // non-zero ends the scan, zero starts the second pass
};

class TaskEventHandler {
public:
    virtual ~TaskEventHandler() = default;
    virtual TaskEventResponse HandleTaskEvent(TaskEvent event) = 0;
};

// Asks the calling thread's handler; without one the answer is 1.
TaskEventResponse EmitTaskEvent(TaskEvent event);
void SetThreadTaskEventHandler(TaskEventHandler* handler);

} // namespace nrq
