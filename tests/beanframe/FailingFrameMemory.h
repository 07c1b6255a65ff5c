// While it is alive, single objects that the program asks for without an exception get no memory. One at a time.
#pragma once

class FailingFrameMemory
{
public:
    FailingFrameMemory();
    ~FailingFrameMemory();
    FailingFrameMemory(const FailingFrameMemory&) = delete;
    FailingFrameMemory& operator=(const FailingFrameMemory&) = delete;
};
