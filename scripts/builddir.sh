# Sourced by the scripts: the build folder, $VEK_BUILD_DIR or build/ (build-asan,
# build-tsan for the sanitizer builds that VEK_SANITIZE asks for).
vek_build_dir() {
    local suffix=
    case "${VEK_SANITIZE:-}" in
        address) suffix=-asan ;;
        thread) suffix=-tsan ;;
        '') ;;
        *) echo "VEK_SANITIZE must be address or thread, not '$VEK_SANITIZE'" >&2; return 2 ;;
    esac
    echo "${VEK_BUILD_DIR:-$here/build$suffix}"
}
