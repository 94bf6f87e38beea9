# ORVO_SANITIZE names the sanitizers of a preset: "address,undefined", "thread" or "fuzzer-no-link,address".
set(ORVO_SANITIZE "" CACHE STRING "Sanitizers to build everything with")
if(ORVO_SANITIZE)
  add_compile_options(-fsanitize=${ORVO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${ORVO_SANITIZE})
endif()
