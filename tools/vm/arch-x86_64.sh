# The x86_64 guest, sourced by vm-run: this machine's own kernel and programs, under
# qemu-system-x86_64's "pc" machine with three serial ports.

# What the guest is made of, as "file-or-program:Debian package" (installed when missing),
# and the kernel package when no kernel with modules is installed.
readonly VM_ARCH_PACKAGES="qemu-system-x86_64:qemu-system-x86 aconnect:alsa-utils
  fluidsynth:fluidsynth /usr/share/alsa/alsa.conf:libasound2-data"
arch_kernel_package() { image_kernel_version >/dev/null || echo linux-image-amd64; }

# Nothing to fetch: the kernel and programs are this machine's.
arch_prepare() { :; }

# The emulator and machine. The kernel's console is ttyS2; the serial ports are, in order,
# ttyS0 (the command's output), ttyS1 (/init's reports) and ttyS2.
readonly VM_QEMU="qemu-system-x86_64 -accel tcg -machine pc"
readonly VM_CONSOLE=ttyS2
# The reference for NUV_TIME_SCALE in the guest.
readonly VM_TIME_SCALE=1
arch_serial_args() { echo "-serial chardev:output -serial chardev:control -serial chardev:kernel"; }
