#include "kel_gate.h"

int main(int argc, char** argv)
{
    return KelGate().run(argc, argv);
}
