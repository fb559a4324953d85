// deep.h: a fault below many calls, in a source of its own.
#pragma once

/// Faults below 26 nested calls.
void FaultInDepth();
