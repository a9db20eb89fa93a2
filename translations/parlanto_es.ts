<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="es" sourcelanguage="en">
<context>
    <name>Parlanto</name>
    <message id="menu.settings">
        <source>Settings…</source>
        <translation>Ajustes…</translation>
    </message>
    <message id="menu.quit">
        <source>Quit Parlanto</source>
        <translation>Salir de Parlanto</translation>
    </message>
    <message id="popup.copy">
        <source>Copy</source>
        <translation>Copiar</translation>
    </message>
    <message id="notification.translation_ready">
        <source>Your translation is ready and on the clipboard. Click to copy it again.</source>
        <translation>Tu traducción está lista y en el portapapeles. Haz clic para volver a copiarla.</translation>
    </message>
    <message id="notification.action.copy">
        <source>Copy again</source>
        <translation>Copiar de nuevo</translation>
    </message>
    <message id="notification.quota_exceeded.title">
        <source>Translation quota used up</source>
        <translation>Cuota de traducción agotada</translation>
    </message>
    <message id="notification.quota_exceeded.body_wait">
        <source>You have used this month's translation characters. Your quota renews at the start of next month.</source>
        <translation>Has usado los caracteres de traducción de este mes. Tu cuota se renueva a principios del mes que viene.</translation>
    </message>
    <message id="notification.text_too_long">
        <source>Text too long (max 5,000 characters)</source>
        <translation>Texto demasiado largo (máx. 5.000 caracteres)</translation>
    </message>
    <message id="notification.timeout">
        <source>Translation timed out</source>
        <translation>La traducción ha tardado demasiado</translation>
    </message>
    <message id="notification.unauthorized">
        <source>Your session has expired. Please sign in again.</source>
        <translation>Tu sesión ha caducado. Vuelve a iniciar sesión.</translation>
    </message>
    <message id="notification.network_error">
        <source>Translation failed — no network connection.</source>
        <translation>La traducción ha fallado: no hay conexión a la red.</translation>
    </message>
    <message id="notification.unknown_error">
        <source>Translation failed, try again</source>
        <translation>La traducción ha fallado, inténtalo de nuevo</translation>
    </message>
    <message id="notification.translation_copied">
        <source>Translation copied — press Ctrl+V to paste</source>
        <translation>Traducción copiada: pulsa Ctrl+V para pegarla</translation>
    </message>
    <message id="permission.title">
        <source>Parlanto needs access to other applications</source>
        <translation>Parlanto necesita acceso a las demás aplicaciones</translation>
    </message>
    <message id="permission.body">
        <source>To read the text you select and to paste translations, Parlanto must be allowed to control your computer through accessibility.</source>
        <translation>Para leer el texto que seleccionas y pegar las traducciones, Parlanto necesita permiso para controlar tu ordenador mediante la accesibilidad.</translation>
    </message>
    <message id="permission.step1">
        <source>1. Open your system's accessibility settings with the button below.</source>
        <translation>1. Abre los ajustes de accesibilidad del sistema con el botón de abajo.</translation>
    </message>
    <message id="permission.step2">
        <source>2. Switch on assistive technologies (screen reader support) for your session.</source>
        <translation>2. Activa las tecnologías de asistencia (compatibilidad con lectores de pantalla) en tu sesión.</translation>
    </message>
    <message id="permission.step3">
        <source>3. Come back here: this window closes by itself as soon as access is granted.</source>
        <translation>3. Vuelve aquí: esta ventana se cierra sola en cuanto se conceda el acceso.</translation>
    </message>
    <message id="permission.bus.step1">
        <source>1. Install the accessibility bus: sudo apt-get install at-spi2-core.</source>
        <translation>1. Instala el bus de accesibilidad: sudo apt-get install at-spi2-core.</translation>
    </message>
    <message id="permission.bus.step2">
        <source>2. Log out and back in, so that your session starts it.</source>
        <translation>2. Cierra la sesión y vuelve a entrar, para que tu sesión lo inicie.</translation>
    </message>
    <message id="permission.bus.step3">
        <source>3. Start Parlanto again: this window closes by itself once the bus answers.</source>
        <translation>3. Vuelve a abrir Parlanto: esta ventana se cierra sola en cuanto el bus responda.</translation>
    </message>
    <message id="permission.x11.step1">
        <source>1. Parlanto needs an X11 session: choose an X11 (Xorg) session at the login screen.</source>
        <translation>1. Parlanto necesita una sesión X11: elige una sesión X11 (Xorg) en la pantalla de inicio de sesión.</translation>
    </message>
    <message id="permission.x11.step2">
        <source>2. Your X server must offer the XTest and XInput 2 extensions (every standard Xorg server does).</source>
        <translation>2. Tu servidor X debe ofrecer las extensiones XTest y XInput 2 (todo servidor Xorg estándar las tiene).</translation>
    </message>
    <message id="permission.x11.step3">
        <source>3. Log in again and start Parlanto: this window closes by itself once they are there.</source>
        <translation>3. Vuelve a iniciar sesión y abre Parlanto: esta ventana se cierra sola en cuanto estén disponibles.</translation>
    </message>
    <message id="permission.open_settings">
        <source>Open Settings</source>
        <translation>Abrir ajustes</translation>
    </message>
    <message id="settings.title">
        <source>Parlanto Settings</source>
        <translation>Ajustes de Parlanto</translation>
    </message>
    <message id="settings.tab.general">
        <source>General</source>
        <translation>General</translation>
    </message>
    <message id="settings.tab.translation">
        <source>Translation</source>
        <translation>Traducción</translation>
    </message>
    <message id="general.section.behavior">
        <source>Behavior</source>
        <translation>Comportamiento</translation>
    </message>
    <message id="general.launch_at_login">
        <source>Launch at login</source>
        <translation>Abrir al iniciar sesión</translation>
    </message>
    <message id="general.auto_replace">
        <source>Replace the selected text with its translation</source>
        <translation>Sustituir el texto seleccionado por su traducción</translation>
    </message>
    <message id="general.inline_translation">
        <source>Inline translation (type text, then @lang and a space)</source>
        <translation>Traducción en línea (escribe el texto, luego @idioma y un espacio)</translation>
    </message>
    <message id="general.inline_note">
        <source>Example: type “Good morning @ja” followed by a space in any text field.</source>
        <translation>Ejemplo: escribe «Good morning @ja» seguido de un espacio en cualquier campo de texto.</translation>
    </message>
    <message id="general.popup_dismiss_delay">
        <source>Close the translation popup after:</source>
        <translation>Cerrar la ventana de traducción tras:</translation>
    </message>
    <message id="general.popup_dismiss_5s">
        <source>5 seconds</source>
        <translation>5 segundos</translation>
    </message>
    <message id="general.popup_dismiss_10s">
        <source>10 seconds</source>
        <translation>10 segundos</translation>
    </message>
    <message id="general.popup_dismiss_30s">
        <source>30 seconds</source>
        <translation>30 segundos</translation>
    </message>
    <message id="general.popup_dismiss_60s">
        <source>1 minute</source>
        <translation>1 minuto</translation>
    </message>
    <message id="general.popup_dismiss_never">
        <source>Never</source>
        <translation>Nunca</translation>
    </message>
    <message id="general.section.output_format">
        <source>Output Format</source>
        <translation>Formato de salida</translation>
    </message>
    <message id="general.translate_only">
        <source>Translation only</source>
        <translation>Solo la traducción</translation>
    </message>
    <message id="general.original_translation">
        <source>Original and translation</source>
        <translation>Original y traducción</translation>
    </message>
    <message id="general.template">
        <source>Template</source>
        <translation>Plantilla</translation>
    </message>
    <message id="general.template_hint">
        <source>Use {original} for the selected text and {translated} for its translation.</source>
        <translation>Usa {original} para el texto seleccionado y {translated} para su traducción.</translation>
    </message>
    <message id="general.preview">
        <source>Preview</source>
        <translation>Vista previa</translation>
    </message>
    <message id="general.section.default_language">
        <source>Default Language</source>
        <translation>Idioma predeterminado</translation>
    </message>
    <message id="general.default_lang_note">
        <source>The language you usually translate into.</source>
        <translation>El idioma al que sueles traducir.</translation>
    </message>
    <message id="general.section.hotkeys">
        <source>Hotkeys</source>
        <translation>Atajos de teclado</translation>
    </message>
    <message id="general.hotkeys.col.language">
        <source>Language</source>
        <translation>Idioma</translation>
    </message>
    <message id="general.hotkeys.col.shortcut">
        <source>Shortcut</source>
        <translation>Atajo</translation>
    </message>
    <message id="general.hotkeys.col.enabled">
        <source>Enabled</source>
        <translation>Activado</translation>
    </message>
    <message id="hotkey.add">
        <source>Add a hotkey</source>
        <translation>Añadir un atajo</translation>
    </message>
    <message id="hotkey.delete">
        <source>Remove this hotkey</source>
        <translation>Eliminar este atajo</translation>
    </message>
    <message id="recorder.click_to_set">
        <source>Click to set</source>
        <translation>Haz clic para asignar</translation>
    </message>
    <message id="recorder.type_shortcut">
        <source>Type shortcut…</source>
        <translation>Pulsa el atajo…</translation>
    </message>
    <message id="alert.hotkey_conflict.title">
        <source>This shortcut is often used to paste without formatting</source>
        <translation>Este atajo se usa a menudo para pegar sin formato</translation>
    </message>
    <message id="alert.hotkey_conflict.message">
        <source>Many applications paste plain text with this shortcut. While Parlanto uses it, it will translate instead of pasting in those applications.</source>
        <translation>Muchas aplicaciones pegan texto sin formato con este atajo. Mientras Parlanto lo use, en esas aplicaciones traducirá en lugar de pegar.</translation>
    </message>
    <message id="alert.use_anyway">
        <source>Use Anyway</source>
        <translation>Usar de todos modos</translation>
    </message>
    <message id="alert.cancel">
        <source>Cancel</source>
        <translation>Cancelar</translation>
    </message>
    <message id="alert.launch_at_login.title">
        <source>Launch Parlanto at Login?</source>
        <translation>¿Abrir Parlanto al iniciar sesión?</translation>
    </message>
    <message id="alert.launch_at_login.message">
        <source>Parlanto works best as a background app. Would you like it to start automatically when you log in?</source>
        <translation>Parlanto funciona mejor en segundo plano. ¿Quieres que se abra automáticamente al iniciar sesión?</translation>
    </message>
    <message id="alert.launch_at_login.yes">
        <source>Yes, Launch at Login</source>
        <translation>Sí, abrir al iniciar sesión</translation>
    </message>
    <message id="alert.launch_at_login.not_now">
        <source>Not Now</source>
        <translation>Ahora no</translation>
    </message>
    <message id="translation.engine">
        <source>Translation engine:</source>
        <translation>Motor de traducción:</translation>
    </message>
    <message id="translation.engine.service">
        <source>Parlanto web service</source>
        <translation>Servicio web de Parlanto</translation>
    </message>
    <message id="translation.engine.offline">
        <source>Offline (Apertium, on this computer)</source>
        <translation>Sin conexión (Apertium, en este ordenador)</translation>
    </message>
    <message id="translation.engine.deepl">
        <source>DeepL</source>
        <translation>DeepL</translation>
    </message>
    <message id="translation.engine.libretranslate">
        <source>LibreTranslate</source>
        <translation>LibreTranslate</translation>
    </message>
    <message id="translation.engine.openai">
        <source>OpenAI-compatible model</source>
        <translation>Modelo compatible con OpenAI</translation>
    </message>
    <message id="translation.test.title">
        <source>Try it</source>
        <translation>Pruébalo</translation>
    </message>
    <message id="translation.test.button">
        <source>Test</source>
        <translation>Probar</translation>
    </message>
    <message id="translation.test.explanation">
        <source>Translates “%1” with the engine chosen above.</source>
        <translation>Traduce «%1» con el motor elegido arriba.</translation>
    </message>
    <message id="translation.test.running">
        <source>Translating…</source>
        <translation>Traduciendo…</translation>
    </message>
    <message id="translation.test.result">
        <source>“%1” → “%2”</source>
        <translation>«%1» → «%2»</translation>
    </message>
    <message id="translation.account.title">
        <source>Parlanto account</source>
        <translation>Cuenta de Parlanto</translation>
    </message>
    <message id="translation.account.token_placeholder">
        <source>Paste your account token</source>
        <translation>Pega el token de tu cuenta</translation>
    </message>
    <message id="translation.account.sign_in">
        <source>Sign In</source>
        <translation>Iniciar sesión</translation>
    </message>
    <message id="translation.account.sign_out">
        <source>Sign Out</source>
        <translation>Cerrar sesión</translation>
    </message>
    <message id="translation.account.explanation">
        <source>The token is kept in your system's keyring and sent only to the Parlanto service.</source>
        <translation>El token se guarda en el llavero del sistema y solo se envía al servicio de Parlanto.</translation>
    </message>
    <message id="translation.account.signed_in">
        <source>Signed in</source>
        <translation>Sesión iniciada</translation>
    </message>
    <message id="translation.account.signed_out">
        <source>Not signed in</source>
        <translation>Sesión no iniciada</translation>
    </message>
    <message id="translation.account.save_failed">
        <source>The keyring did not accept the token.</source>
        <translation>El llavero no ha aceptado el token.</translation>
    </message>
    <message id="translation.quota.unknown">
        <source>Characters left this month: shown after your next translation</source>
        <translation>Caracteres restantes este mes: se mostrarán tras tu próxima traducción</translation>
    </message>
    <message id="translation.quota.remaining">
        <source>Characters left this month: %1</source>
        <translation>Caracteres restantes este mes: %1</translation>
    </message>
    <message id="translation.offline.explanation">
        <source>Translates on this computer with Apertium: no account and no network, nothing leaves your computer. It knows fewer languages than the online engines.</source>
        <translation>Traduce en este ordenador con Apertium: sin cuenta ni red, nada sale de tu ordenador. Conoce menos idiomas que los motores en línea.</translation>
    </message>
    <message id="translation.url">
        <source>Server URL:</source>
        <translation>URL del servidor:</translation>
    </message>
    <message id="translation.url.deepl_automatic">
        <source>Chosen from the key (Free or Pro API)</source>
        <translation>Según la clave (API Free o Pro)</translation>
    </message>
    <message id="translation.model">
        <source>Model:</source>
        <translation>Modelo:</translation>
    </message>
    <message id="translation.key">
        <source>API key:</source>
        <translation>Clave de API:</translation>
    </message>
    <message id="translation.key_placeholder">
        <source>Paste your API key</source>
        <translation>Pega tu clave de API</translation>
    </message>
    <message id="translation.key_explanation">
        <source>Keys are kept in your system's keyring, never in the settings file.</source>
        <translation>Las claves se guardan en el llavero del sistema, nunca en el archivo de ajustes.</translation>
    </message>
</context>
</TS>
