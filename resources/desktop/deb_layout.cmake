# Run by cpack after it installed into its staging folder: the Debian package installs
# under /usr, where zsh looks for completions of packages in vendor-completions, whatever
# prefix the build folder was configured for.
file(GLOB_RECURSE argent_zsh "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/share/zsh/site-functions/_argentpm")
foreach(f ${argent_zsh})
  get_filename_component(share "${f}" DIRECTORY)
  get_filename_component(share "${share}" DIRECTORY)
  file(MAKE_DIRECTORY "${share}/vendor-completions")
  file(RENAME "${f}" "${share}/vendor-completions/_argentpm")
  file(GLOB rest "${share}/site-functions/*")
  if(NOT rest)
    file(REMOVE_RECURSE "${share}/site-functions")
  endif()
endforeach()
