// How queues and semaphores are shown.
#pragma once

#include <string>
#include <vector>

#include "json.h"
#include "message_queue.h"
#include "named_semaphore.h"

namespace kelctl {

std::string QueueTable(const std::vector<MessageQueue> &queues);
std::string SemaphoreTable(const std::vector<Semaphore> &semaphores);

// One of them, a property to a line. With `paired` a semaphore of the queue's
// name lets its senders in.
std::string QueueDetails(const MessageQueue &queue, bool paired);
std::string SemaphoreDetails(const Semaphore &semaphore);

void AddQueue(Json &json, const MessageQueue &queue);
void AddSemaphore(Json &json, const Semaphore &semaphore);

}  // namespace kelctl
