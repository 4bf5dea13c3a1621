#!/usr/bin/env bash
# with_arm_handler.sh COMMAND...: runs as root of new user and mount namespaces (tools/sandbox.sh), has the kernel
# hand programs for 32-bit ARM to qemu-arm, inside alone, and becomes COMMAND.
set -euo pipefail
mount -t binfmt_misc none /proc/sys/fs/binfmt_misc
# An ELF header's first 20 bytes, 32 bits, little-endian, for ARM; which of them count; and the emulator, which is
# opened here and needs not be found later.
printf '%s' ':qemu-arm:M::\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00' \
    ':\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff' \
    ":$(command -v qemu-arm):OCF" >/proc/sys/fs/binfmt_misc/register
exec "$@"
