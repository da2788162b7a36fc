__asm__(
    ".globl CustomPageFunc, OpenGraphFunc\n"
    ".set CustomPageFunc, 0\n"
    ".set OpenGraphFunc, 0\n");
