# What cpack makes of a build.
set(CPACK_PACKAGE_NAME quelta-daemon)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
