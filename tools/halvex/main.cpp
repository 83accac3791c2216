#include <HVX/HVX.h>
#include <cstdio>
int main() { nrq::HVXInit(false); nrq::HVXTerminate(); std::puts("ok"); }
