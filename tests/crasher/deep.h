// deep.h: a fault below many calls, in a source that is optimised.
#pragma once

/// Faults in the innermost of 26 nested calls.
void FaultInDepth();
