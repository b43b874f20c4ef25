// What a worker does with its queue before it goes.
#pragma once

class FdCmdCache;
class FdCmdQueue;

// Returns all nodes to the cache. The number of those that are left, which is 0.
int drainQueue(FdCmdQueue& queue, FdCmdCache& cache);

// The same with the line that an operator thread and the send thread end in.
void drainReaderQueue(FdCmdQueue& queue, FdCmdCache& cache);
