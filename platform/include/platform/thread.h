// Threads: how they share the processor.
#pragma once

// Makes the calling thread give way to those that a person waits for. Children that it starts give
// way too. 0, or -1 with errno set.
int platform_thread_give_way();
