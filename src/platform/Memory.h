#pragma once

namespace velmo {

/// Makes freed memory go back to the system, so that a program that runs for weeks stays as small as what it holds. To
/// be called before there are threads.
void returnFreedMemory();

}
