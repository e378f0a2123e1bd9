# macOS: quorvel becomes Quorvel.app. Launch Services only registers the URL scheme, and
# privacy prompts only name the app, when it runs as a bundle.
set(packaging ${CMAKE_SOURCE_DIR}/packaging)
set(resources ${packaging}/Quorvel.icns)
set_source_files_properties(${resources} PROPERTIES MACOSX_PACKAGE_LOCATION Resources)
foreach(language en zh-Hans)
    set(strings ${packaging}/${language}.lproj/InfoPlist.strings)
    set_source_files_properties(${strings} PROPERTIES
        MACOSX_PACKAGE_LOCATION Resources/${language}.lproj)
    list(APPEND resources ${strings})
endforeach()
target_sources(quorvel PRIVATE ${resources})
set_target_properties(quorvel PROPERTIES
    MACOSX_BUNDLE TRUE
    OUTPUT_NAME ${MACOSX_BUNDLE_EXECUTABLE_NAME}
    MACOSX_BUNDLE_INFO_PLIST ${QUORVEL_INFO_PLIST})

# `make app`: install copies the bundle, Qt's deploy script (macdeployqt) brings Qt, its
# plug-ins and every non-system library (libplist, ICU) inside, then the whole is signed.
install(TARGETS quorvel BUNDLE DESTINATION .)
if(Qt6_VERSION VERSION_LESS 6.5)
    qt_generate_deploy_app_script(TARGET quorvel FILENAME_VARIABLE deploy_script)
else()
    qt_generate_deploy_app_script(TARGET quorvel OUTPUT_SCRIPT deploy_script)
endif()
install(SCRIPT ${deploy_script})

# Ad-hoc ("-") by default. An ad-hoc signature names the exact binary, so every rebuild is
# a new app to the privacy database and the Accessibility grant (screen cleaning) must be
# given again; signing with a stable identity (QUORVEL_SIGN_IDENTITY: an Apple Development
# certificate, or a self-signed code-signing certificate in the login keychain) keeps the
# grant across rebuilds. Nested code is signed first, then the app with its entitlements
# and the hardened runtime.
set(QUORVEL_SIGN_IDENTITY "-" CACHE STRING "codesign identity for the installed bundle")
install(CODE "
    set(app \"\${CMAKE_INSTALL_PREFIX}/Quorvel.app\")
    execute_process(COMMAND codesign --force --deep --options runtime
        --sign \"${QUORVEL_SIGN_IDENTITY}\" \"\${app}\" COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND codesign --force --options runtime
        --entitlements \"${packaging}/Quorvel.entitlements\"
        --sign \"${QUORVEL_SIGN_IDENTITY}\" \"\${app}\" COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND codesign --verify --deep --strict \"\${app}\"
        COMMAND_ERROR_IS_FATAL ANY)
")
