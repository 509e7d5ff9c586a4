# The library: one set of objects, linked twice. libPlimBitmapLib.so exports only the public API
# (hidden visibility by default); the static plim_internal lets white-box tests reach helpers.
set(PLIM_SUBSYSTEMS
  platform/runtime platform/graphics platform/color platform/media
  core pixelops composite io pathfinder colormatch)

set(PLIM_SOURCES "")
foreach(dir IN LISTS PLIM_SUBSYSTEMS)
  file(GLOB_RECURSE _src CONFIGURE_DEPENDS
       ${PROJECT_SOURCE_DIR}/src/${dir}/*.cpp ${PROJECT_SOURCE_DIR}/src/${dir}/*.c)
  list(APPEND PLIM_SOURCES ${_src})
endforeach()

add_library(plim_objects OBJECT ${PLIM_SOURCES})
set_target_properties(plim_objects PROPERTIES
  POSITION_INDEPENDENT_CODE ON
  C_VISIBILITY_PRESET hidden
  CXX_VISIBILITY_PRESET hidden
  VISIBILITY_INLINES_HIDDEN ON)
target_include_directories(plim_objects
  PUBLIC ${PROJECT_SOURCE_DIR}/include
  PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(plim_objects PUBLIC Threads::Threads m)

# Third-party libraries the platform layer stands on; each subsystem's issue adds its own here.
set(PLIM_PKG_MODULES lcms2 pixman-1 libpng libjpeg libtiff-4 libhwy libdeflate
    libwebp libwebpdemux libwebpmux libavif libheif libjxl)
foreach(mod IN LISTS PLIM_PKG_MODULES)
  string(MAKE_C_IDENTIFIER ${mod} _id)
  pkg_check_modules(PKG_${_id} REQUIRED IMPORTED_TARGET ${mod})
  target_link_libraries(plim_objects PUBLIC PkgConfig::PKG_${_id})
endforeach()
target_link_libraries(plim_objects PUBLIC gif)

add_library(PlimBitmapLib SHARED)
target_link_libraries(PlimBitmapLib PRIVATE plim_objects)
target_include_directories(PlimBitmapLib PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
# -Bsymbolic-functions: the library's calls to its own exported functions (the platform layer's
# NewHandle, CFRelease, CGImageCreate, ...) bind inside the library, so a program that happens to
# define a function of the same name does not replace it for the library.
set_target_properties(PlimBitmapLib PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PLIM_SOVERSION}
  LINK_FLAGS "-Wl,--no-undefined -Wl,-Bsymbolic-functions -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map"
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)

# The same objects as an archive for static linking; pkg-config --static gives what it needs.
if(PLIM_BUILD_STATIC)
  add_library(PlimBitmapLibStatic STATIC $<TARGET_OBJECTS:plim_objects>)
  set_target_properties(PlimBitmapLibStatic PROPERTIES OUTPUT_NAME PlimBitmapLib)
endif()

add_library(plim_internal STATIC)
target_link_libraries(plim_internal PUBLIC plim_objects)
target_include_directories(plim_internal PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
