# Frame scaling against libyuv (Debian libyuv-dev, no pkg-config file) and
# libswscale.
pkg_check_modules(SWSCALE REQUIRED IMPORTED_TARGET libswscale libavutil)
dravix_bench(imaging LIBS yuv PkgConfig::SWSCALE)
