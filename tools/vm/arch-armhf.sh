# The 32-bit ARM guest, sourced by vm-run: Debian's armmp kernel (with snd-virmidi built for
# it) and armhf programs, both from the cache that tools/armhf/fetch.sh fills, under
# qemu-system-arm's "virt" board. Shared libraries are found by reading ELF files, as ldd
# cannot run ARM programs.

readonly VM_ARCH_PACKAGES="qemu-system-arm:qemu-system-arm readelf:binutils"
arch_kernel_package() { :; }

# Fetches (once) the sysroot and kernel, and points the image at them.
arch_prepare() {
  local cache
  cache=$("$HARNESS_DIR/../armhf/fetch.sh") || die "could not fetch the armhf sysroot and kernel"
  NUV_VM_SYSROOT=$cache/sysroot
  NUV_VM_KROOT=$cache/kernel
  NUV_VM_LIBRARY_DIRS="/lib/arm-linux-gnueabihf /usr/lib/arm-linux-gnueabihf /lib /usr/lib"
}

# The board's own UART (ttyAMA0) is the kernel's console, as it is the only port the kernel
# knows before /init runs; a two-port PCI serial card gives ttyS0 (the command's output) and
# ttyS1 (/init's reports), as on x86_64. highmem=off: the 32-bit kernel without LPAE
# reaches no PCI memory above 4 GiB.
readonly VM_QEMU="qemu-system-arm -accel tcg -machine virt,highmem=off -cpu cortex-a15"
readonly VM_CONSOLE=ttyAMA0
# The guest's NUV_TIME_SCALE: emulated ARM runs the tests 2-3 times slower than the x86_64
# guest; FluidSynth takes longer to load a file and start playing it.
readonly VM_TIME_SCALE=3
arch_serial_args() {
  echo "-serial chardev:kernel -device pci-serial-2x,chardev1=output,chardev2=control"
}
