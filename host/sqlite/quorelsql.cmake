# quorelsql: the SQL shell. Its parts are a library, so that tests can link them.

if(NOT TARGET quorel_sqlite_dep OR NOT TARGET quorel_libedit_dep)
  return()
endif()

quorel_library(host_sqlite_shell
  SOURCES
    callresult.cpp
    callstatement.cpp
    csv.cpp
    display.cpp
    dotcommands.cpp
    field.cpp
    interrupt.cpp
    json.cpp
    lineeditor.cpp
    options.cpp
    procedurehelp.cpp
    progress.cpp
    rowprinter.cpp
    runcall.cpp
    runsql.cpp
    runstatement.cpp
    schema.cpp
    script.cpp
    secrets.cpp
    session.cpp
    sqltext.cpp
    statements.cpp
    table.cpp
    terminal.cpp
    utf8.cpp
  DEPENDS host_frame host_sqlite quorel_sqlite_dep quorel_libedit_dep)
target_compile_definitions(host_sqlite_shell PRIVATE QUOREL_VERSION="${PROJECT_VERSION}")

add_executable(quorelsql quorelsql.cpp)
target_link_libraries(quorelsql PRIVATE host_sqlite_shell)
target_link_options(quorelsql PRIVATE ${shipped_link_options})
install(TARGETS quorelsql RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
