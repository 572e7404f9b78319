# The user manual, "QRV Manual.pdf", printed from docs/manual.md into the build folder by
# tools/make_manual (Qt's PDF writer, on the offscreen platform); target `manual`. Included by
# the Linux build, and by the small host build in cmake/manual/ that the Windows build uses when
# no Linux build folder gives it the PDF. Qt6::Gui must be found first.
get_filename_component(stashwell_manual_root ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
add_executable(make_manual ${stashwell_manual_root}/tools/make_manual.cpp)
target_link_libraries(make_manual PRIVATE Qt6::Gui)
set(manual_pdf "${CMAKE_BINARY_DIR}/QRV Manual.pdf")
add_custom_command(OUTPUT ${manual_pdf}
    COMMAND ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen
            $<TARGET_FILE:make_manual> ${stashwell_manual_root}/docs/manual.md ${manual_pdf}
    DEPENDS make_manual ${stashwell_manual_root}/docs/manual.md
    COMMENT "Printing the user manual")
add_custom_target(manual ALL DEPENDS ${manual_pdf})
