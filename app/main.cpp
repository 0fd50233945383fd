#include <cstdio>
int main() { std::puts("tessel"); return 0; }
