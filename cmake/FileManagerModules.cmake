# Where each file manager looks for its modules. For every NAME of MODULE_HOSTS:
#   NAME_MODULES               the folder on this machine, the only one in which it looks
#   NAME_MODULES_BELOW_PREFIX  the same below the prefix of an installation
set(MODULE_HOSTS nautilus caja nemo thunar dolphin)

function(tervano_module_folder NAME PACKAGE FOLDER_VARIABLE)
  pkg_get_variable(FOLDER ${PACKAGE} ${FOLDER_VARIABLE})
  pkg_get_variable(ITS_PREFIX ${PACKAGE} prefix)
  file(RELATIVE_PATH BELOW ${ITS_PREFIX} ${FOLDER})
  set(${NAME}_MODULES ${FOLDER} PARENT_SCOPE)
  set(${NAME}_MODULES_BELOW_PREFIX ${BELOW} PARENT_SCOPE)
endfunction()

tervano_module_folder(nautilus libnautilus-extension-4 extensiondir)
tervano_module_folder(caja libcaja-extension extensiondir)
tervano_module_folder(nemo libnemo-extension extensiondir)
tervano_module_folder(thunar thunarx-3 extensionsdir)

# A folder below the plugins of Qt.
set(DOLPHIN_NAMESPACE kf5/kfileitemaction)
find_package(Qt5Core 5.15 REQUIRED)
get_target_property(QMAKE Qt5::qmake IMPORTED_LOCATION)
foreach(FOLDER PLUGINS PREFIX)
  execute_process(COMMAND ${QMAKE} -query QT_INSTALL_${FOLDER} OUTPUT_VARIABLE QT_${FOLDER}
    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endforeach()
file(RELATIVE_PATH QT_PLUGINS_BELOW_PREFIX ${QT_PREFIX} ${QT_PLUGINS})
set(dolphin_MODULES ${QT_PLUGINS}/${DOLPHIN_NAMESPACE})
set(dolphin_MODULES_BELOW_PREFIX ${QT_PLUGINS_BELOW_PREFIX}/${DOLPHIN_NAMESPACE})
