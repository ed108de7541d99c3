# Installs the module, the command and the headers a host needs.
