#The reader's tests write PNG, TIFF and JPEG files of their own through the same libraries.
find_package(PNG QUIET) find_package(TIFF QUIET) find_package(JPEG QUIET) if (PNG_FOUND)
    target_link_libraries(test_imageio PRIVATE PNG::PNG)
        target_compile_definitions(test_imageio PRIVATE PTMATCH_HAVE_PNG = 1)
            endif() if (TIFF_FOUND) target_link_libraries(test_imageio PRIVATE TIFF::TIFF)
                target_compile_definitions(test_imageio PRIVATE PTMATCH_HAVE_TIFF = 1)
                    endif() if (JPEG_FOUND) target_link_libraries(test_imageio PRIVATE JPEG::JPEG)
                        target_compile_definitions(test_imageio PRIVATE PTMATCH_HAVE_JPEG = 1)
                            endif()
