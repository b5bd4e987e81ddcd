#include "cli/Arguments.h"

int main(int argc, char** argv) {
    return ZELPC::RunArguments(argc, argv);
}
