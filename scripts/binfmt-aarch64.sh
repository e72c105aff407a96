#!/usr/bin/env bash
# Lets this machine run AArch64 executables directly, as a device would: mounts
# binfmt_misc if needed and registers qemu-aarch64-static for AArch64 ELF files
# with the F flag (the kernel opens the emulator now, so it works in every mount
# namespace and chroot later). Tests that exec helper processes then need no
# emulator prefix. Idempotent; needs root (or sudo) the first time.
set -euo pipefail

qemu=/usr/bin/qemu-aarch64-static
dir=/proc/sys/fs/binfmt_misc
entry=$dir/zel-qemu-aarch64
sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi

[ -x "$qemu" ] || { echo "binfmt-aarch64: $qemu missing: run scripts/install-deps.sh" >&2; exit 1; }
if [ ! -e "$dir/register" ]; then
    $sudo mount -t binfmt_misc binfmt_misc "$dir"
fi
# Any enabled AArch64 handler with a fixed emulator will do (ours, or the one
# Debian's binfmt-support or systemd-binfmt registered).
for handler in "$dir"/*; do
    [ -f "$handler" ] || continue
    if grep -qx enabled "$handler" 2>/dev/null && grep -q '^magic 7f454c460201010000000000000000000200b700' "$handler" &&
        grep -q '^flags: .*F' "$handler"; then
        exit 0
    fi
done
[ -e "$entry" ] && echo -1 | $sudo tee "$entry" >/dev/null
magic='\x7f\x45\x4c\x46\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00'
mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
echo ":zel-qemu-aarch64:M::$magic:$mask:$qemu:F" | $sudo tee "$dir/register" >/dev/null
