# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
# Every product-wide constant stands here, once; src/values/product.h.in carries them into the code.

set(HOIST_IDENTIFIER_PREFIX "com.kelvo" CACHE STRING "Reverse-DNS prefix of service names and preference domains")
set(HOIST_TEAM_IDENTIFIER "KLV0T3AM01" CACHE STRING "Developer team identifier in the authorised-client requirement")
set(HOIST_PRODUCT_FOLDER "Kelvo" CACHE STRING "Name of the product's folders inside the standard folders")
set(HOIST_JOURNAL_PREFIX "KELVO" CACHE STRING "What the names of the program's own journal fields begin with (upper case)")
set(HOIST_RUNTIME_DIR "/run/kelvo" CACHE PATH "Folder of the service sockets")
set(HOIST_TRUST_DIR "/etc/kelvo/trust.d" CACHE PATH "Folder of the trust anchors (*.pem) for code signatures")
set(HOIST_LIBEXEC_DIR "${CMAKE_INSTALL_FULL_LIBEXECDIR}/kelvo" CACHE PATH "Folder of the tools codesign, sample and csrutil")
set(HOIST_LOCAL_STATE_DIR "/var/lib" CACHE PATH "Local Library and Application Support folder")
set(HOIST_LOCAL_APPLICATION_DIR "/opt" CACHE PATH "Local Application folder")

configure_file(${PROJECT_SOURCE_DIR}/src/values/product.h.in ${PROJECT_BINARY_DIR}/generated/values/product.h @ONLY)
