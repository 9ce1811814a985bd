#include "app/adapter_main.h"

int main(int argc, char** argv) {
    return adapterMain(argc, argv);
}
