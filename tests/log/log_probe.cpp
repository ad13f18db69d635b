// A stand-in host process: logs its first argument as one error line.
#include "log/log.h"

int main(int argc, char** argv) {
    writeLog(2, argc > 1 ? argv[1] : "");
    return 0;
}
